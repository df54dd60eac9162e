#pragma once

#include <cmath>
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

/// |re + i·im|, without overflow or underflow of the squares.
inline double modulus(double re, double im) {
  const double square = re * re + im * im;
  if (square > 1e-280 && square < 1e280) return std::sqrt(square);
  return std::hypot(re, im);
}

/// √(x² + y² + z²), likewise.
inline double modulus(double x, double y, double z) {
  const double square = x * x + y * y + z * z;
  if (square > 1e-280 && square < 1e280) return std::sqrt(square);
  return std::hypot(x, y, z);
}

}  // namespace BF
