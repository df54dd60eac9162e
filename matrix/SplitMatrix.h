#pragma once

#include <cstddef>
#include <vector>

namespace BF {

/// Work array of the decomposition kernels: a row-major complex matrix with real and imaginary
/// parts apart, so that operations along a row are plain loops over contiguous doubles.
class SplitMatrix {
 public:
  SplitMatrix() = default;

  /// rowCount × columnCount zeros.
  SplitMatrix(std::size_t rowCount, std::size_t columnCount)
      : columns(columnCount),
        parts(2 * rowCount * columnCount),
        imaginary(rowCount * columnCount) {}

  /// Becomes rowCount × columnCount zeros, in the storage that is there if it is large enough.
  void setToZeros(std::size_t rowCount, std::size_t columnCount) {
    columns = columnCount;
    imaginary = rowCount * columnCount;
    parts.assign(2 * imaginary, 0.0);
  }

  double* re(std::size_t row) { return parts.data() + row * columns; }
  double* im(std::size_t row) { return parts.data() + imaginary + row * columns; }

 private:
  std::size_t columns = 0;
  std::vector<double> parts;
  std::size_t imaginary = 0;
};

}  // namespace BF
