#pragma once

#include <vector>

#include "matrix/Batch.h"

namespace BF {

/// result (n × 1) := the eigenvector that operand.eigenValues(values, V) gives for the eigenvalue
/// of largest modulus: column values.getMaximumValueIndexInColumn(0) of V. One decomposition alone
/// waits for its roots and divisions most of the time, and the other eigenvectors are never formed.
/// Operands that do not converge are decomposed one by one. All are n × n with n > 0: otherwise
/// throws NotSquareMatrixException, MatrixSizeMismatchException or IndexOutOfBoundException. For
/// several threads at once, but not beside eigenValues, which it calls where the lanes do not
/// serve.
void principalEigenVectors(const Batch& batch);

/// A Hermitian A, the inverse of the Cholesky factor R of B = Rᴴ · R, and where v goes: all n × n
/// but v, which is neither of the others.
struct EigenPair {
  const Matrix* A;
  const Matrix* inverseR;
  Matrix* v;
};

/// v (n × 1) := R⁻¹ · y of every pair, y the principal eigenvector of R⁻ᴴ · A · R⁻¹ as above: the
/// eigenvector of A · v = λ · B · v (Golub & Van Loan, Matrix Computations, section 8.7). Bits,
/// storage and exceptions are as above.
void principalGeneralisedVectors(const std::vector<EigenPair>& pairs);

}  // namespace BF
