#pragma once

#include <cstddef>
#include <vector>

namespace BF {

/// Work array of the decomposition kernels: a row-major complex matrix with real and imaginary
/// parts apart, so that operations along a row are plain loops over contiguous doubles. Rows are
/// padded to whole vectors of the processor with zeros.
class SplitMatrix {
 public:
  /// Rows hold a multiple of this many numbers.
  static constexpr std::size_t PADDING = 8;

  SplitMatrix() = default;

  /// rowCount × columnCount zeros.
  SplitMatrix(std::size_t rowCount, std::size_t columnCount) { setToZeros(rowCount, columnCount); }

  /// Becomes rowCount × columnCount zeros, in the storage that is there if it is large enough.
  void setToZeros(std::size_t rowCount, std::size_t columnCount) {
    columns = (columnCount + PADDING - 1) / PADDING * PADDING;
    imaginary = rowCount * columns;
    parts.assign(2 * imaginary, 0.0);
  }

  /// From an element to the one below it.
  std::size_t stride() const { return columns; }

  double* re(std::size_t row) { return parts.data() + row * columns; }
  double* im(std::size_t row) { return parts.data() + imaginary + row * columns; }

 private:
  std::size_t columns = 0;
  std::vector<double> parts;
  std::size_t imaginary = 0;
};

}  // namespace BF
