#pragma once

#include "matrix/Batch.h"

namespace BF {

/// result := operand.Inverse() for every square operand of a Batch; those with a pivot that is zero
/// are inverted one by one. Throws NotSquareMatrixException and MatrixSizeMismatchException.
void inverses(const Batch& batch);

}  // namespace BF
