#pragma once

#include <array>
#include <cstddef>

#include "matrix/Matrix.h"

namespace BF {

/// A matrix beside copies of the COUNT matrices and the number that it was computed from: while
/// these stay the same to the bit, so does the result, and it need not be computed again.
template <std::size_t COUNT>
class Memo {
 public:
  /// The matrices that a result is computed from, not owned.
  using Inputs = std::array<const Matrix*, COUNT>;

  /// Whether value is what follows from these inputs.
  bool isOf(const Inputs& matrices, double number = 0.0) const {
    if (!valid || number != usedNumber) return false;
    for (std::size_t i = 0; i < COUNT; ++i) {
      if (!sameBits(*matrices[i], used[i])) return false;
    }
    return true;
  }

  /// To be called before value is changed, in case an exception interrupts the change.
  void forget() { valid = false; }

  /// To be called when value has been computed from these inputs.
  void remember(const Inputs& matrices, double number = 0.0) {
    for (std::size_t i = 0; i < COUNT; ++i) used[i] = *matrices[i];
    usedNumber = number;
    valid = true;
  }

  Matrix value;  ///< the result

 private:
  std::array<Matrix, COUNT> used;
  double usedNumber = 0.0;
  bool valid = false;
};

}  // namespace BF
