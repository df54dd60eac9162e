#pragma once

#include "matrix/KernelTypes.h"

namespace BF {

/// Singular-value decomposition of a complex matrix, A = U · diag(s) · Vᴴ, by Householder
/// bidiagonalisation and implicit QR sweeps (Golub–Kahan–Reinsch).
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
