#pragma once

#include <cmath>

namespace BF {

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
