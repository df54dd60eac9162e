#pragma once

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

}  // namespace BF
