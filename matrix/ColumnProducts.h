#pragma once

#include <vector>

#include "matrix/Matrix.h"

namespace BF {

/// Column k of Y := W[k] · column k of X for every column of Y (N × K), several side by side in the
/// lanes of the processor's vectors, with the bits of dotProduct(). Throws IndexOutOfBoundException
/// when X has fewer than K columns or W fewer than K entries, MatrixSizeMismatchException when a
/// W[k] is not N × M for the M rows of X.
void multiplyColumns(const std::vector<Matrix>& W, const Matrix& X, Matrix& Y);

}  // namespace BF
