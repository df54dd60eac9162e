#pragma once

#include <cmath>

#include "matrix/KernelTypes.h"

namespace BF {

/// Vectors whose squared norm is at most this are not reflected: they count as zero.
constexpr double SVD_ZERO_SQUARED_NORM = 1.5e-31F;

/// Off-diagonal elements up to this multiple of the largest d(i) + e(i) split the problem.
constexpr double SVD_OFF_DIAGONAL_TOLERANCE = 1.5e-7F;

/// Diagonal elements up to this multiple of the largest d(i) + e(i) count as zero.
constexpr double SVD_ZERO_DIAGONAL_TOLERANCE = 1e-16;

/// (x² − shift) / x, the first element of the column that starts a QR step on a block of the
/// bidiagonal whose first diagonal element is x, whose last ones are y and z, with g above y and h
/// above z. The shift is the eigenvalue of the trailing 2 × 2 minor of BᵀB that is nearest to its
/// last element.
inline double svdShiftedStart(double x, double y, double z, double g, double h) {
  double f = ((y - z) * (y + z) + (g - h) * (g + h)) / (2.0 * h * y);
  const double root = std::copysign(std::hypot(f, 1.0), f);
  f = ((x - z) * (x + z) + h * (y / (f + root) - h)) / x;
  return f;
}

/// Singular-value decomposition of a complex matrix, A = U · diag(s) · Vᴴ, by Householder
/// bidiagonalisation (Golub & Kahan 1965) and implicit QR sweeps (Golub & Reinsch 1970).
///
/// A (m × n) stays as it is. U (m × m) and V (n × n) become unitary, s (max(m, n) elements) the
/// singular values in decreasing order, zero beyond min(m, n). Vectors whose squared norm is at
/// most 1.5e-31 count as zero, and the sweeps stop at off-diagonal elements of 1.5e-7 relative to
/// the largest: the product holds to that accuracy in the worst case, the unitary factors to
/// rounding. Elements that are not finite (or whose squares overflow) end in finite time: the QR
/// sweeps are left out and the results are what the reflections gave, not finite.
template <typename T>
void svd(KernelMatrix<T>& A, KernelVector<T>& s, KernelMatrix<T>& U, KernelMatrix<T>& V);

template <>
void svd<double>(KernelMatrix<double>& A, KernelVector<double>& s, KernelMatrix<double>& U,
                 KernelMatrix<double>& V);

}  // namespace BF
