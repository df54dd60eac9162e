#pragma once

#include <vector>

#include "matrix/Matrix.h"

namespace BF {

/// vectors[i] (n × 1) becomes, bit for bit, the eigenvector that matrices[i].eigenValues(values, V)
/// gives for the eigenvalue of largest modulus: column values.getMaximumValueIndexInColumn(0) of V
/// (NaN aside, of which there are many). Several decompositions run side by side in the lanes of
/// the processor's vectors, since one alone waits for its roots and divisions most of the time, and
/// the other eigenvectors are never formed. All matrices are n × n with n > 0: otherwise throws
/// NotSquareMatrixException, MatrixSizeMismatchException or IndexOutOfBoundException. For
/// several threads at once, but not beside eigenValues, which it calls where the lanes do not
/// serve. Every kind of processor gives the same.
void principalEigenVectors(const std::vector<Matrix>& matrices, std::vector<Matrix>& vectors);

}  // namespace BF
