#pragma once

#include <vector>

#include "matrix/Matrix.h"

namespace BF {

/// One of many matrices of one shape that the same is done to, side by side in the lanes of the
/// processor's vectors: the operand, and where its result goes, which is no operand.
struct BatchItem {
  const Matrix* operand;
  Matrix* result;
};

/// Results are, bit for bit, what the function for one matrix gives (NaN aside, of which there are
/// many), on every kind of processor. Once called with a shape, a thread allocates no memory for
/// the same shape again, except for matrices that the lanes do not serve: elements that are not
/// finite, and what the functions name.
using Batch = std::vector<BatchItem>;

}  // namespace BF
