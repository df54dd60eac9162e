#pragma once

#include <cmath>

#include "matrix/Modulus.h"
#include "matrix/ProcessorClones.h"

/// The rotation of Jacobi's method for one Hermitian matrix.
namespace BF::jacobi {

/// A decomposition that has not converged after this many sweeps ends all the same.
constexpr int MAX_SWEEPS = 50;

using Real = double;
using Truth = bool;

ZELK_INLINE double absolute(double x) { return std::abs(x); }
ZELK_INLINE double root(double x) { return std::sqrt(x); }

#include "matrix/JacobiRotation.inc"

/// ordinaryRotation() of all numbers: very large and very small ones are scaled by a power of two.
ZELK_INLINE Rotation rotationFor(double ar, double ai, double absA, double h) {
  const double r = modulus(h, 2.0 * ar, 2.0 * ai);
  if (ordinary(r) || !std::isfinite(r)) return ordinaryRotation(ar, ai, absA, h, r);
  const int exponent = std::ilogb(r);
  const auto scaled = [exponent](double x) { return std::scalbn(x, -exponent); };
  Rotation rotation = ordinaryRotation(scaled(ar), scaled(ai), scaled(absA), scaled(h), scaled(r));
  rotation.shift = std::scalbn(rotation.shift, exponent);
  return rotation;
}

}  // namespace BF::jacobi
