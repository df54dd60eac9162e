#pragma once

#include "matrix/KernelTypes.h"

namespace BF {

/// A decomposition that has not converged after this many sweeps ends all the same.
constexpr int JACOBI_MAX_SWEEPS = 50;

/// Eigen-decomposition of a Hermitian matrix, A = V · diag(d) · Vᴴ, by cyclic Jacobi rotations with
/// a threshold (Rutishauser 1966; Golub & Van Loan, Matrix Computations, chapter 8).
///
/// Of A (n × n) only the upper triangle is read, and nothing is changed. d becomes the n
/// eigenvalues, V (n × n) the matching eigenvectors as columns. A decomposition that converges
/// leaves the eigenvalues in the order of the sweeps, unsorted; one that has not converged after 50
/// sweeps is sorted in increasing order. Elements that are not finite end after at most 50 sweeps,
/// with results that mean nothing. Keeps static work storage: not to be called on two threads at
/// once.
template <typename T>
void evd(KernelMatrix<T>& A, KernelVector<T>& d, KernelMatrix<T>& V);

template <>
void evd<double>(KernelMatrix<double>& A, KernelVector<double>& d, KernelMatrix<double>& V);

}  // namespace BF
