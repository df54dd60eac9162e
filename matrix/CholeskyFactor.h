#pragma once

#include "matrix/Matrix.h"

namespace BF {

/// R := the upper triangular factor of B = Rᴴ · R (n × n), column by column (Golub & Van Loan,
/// Matrix Computations, chapter 4); a pivot that is not positive gives a complex or zero diagonal
/// element, and the factorisation goes on. Throws NotSquareMatrixException.
void choleskyFactor(const Matrix& B, Matrix& R);

}  // namespace BF
