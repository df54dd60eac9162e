#pragma once

#include <vector>

#include "bf/BF.h"

namespace BF {

/// Beamformers whose separation matrices follow in closed form from the transfer functions and
/// never adapt. For every source n with transfer function a_n ≠ 0: row n of W · a_n = 1 (for Null,
/// when the sources' transfer functions are linearly independent).
class Fixed : public BF {
 public:
  using BF::BF;

  /// Rebuilds every bin's separation matrix by the formula of getBfAlgorithmType().
  void updateSources(const std::vector<SourceLocation>& newSources) override;

  /// Does nothing.
  void adaptSeparationMatrices() override;

 private:
  // The last algorithm numbers and transfer functions of the bins, and what followed from them: it
  // depends on nothing else, so bins where both are the same to the bit are not computed again.
  std::vector<int> knownTypes;
  std::vector<Matrix> knownTransferFunctions;
  std::vector<Matrix> knownMatrices;
};

/// Delay-and-sum: every microphone with the same weight after phase alignment.
class DS : public Fixed {
 public:
  using Fixed::Fixed;
  int getBfAlgorithmType() const override { return BF_ALGORITHM_DS; }
};

/// Weighted delay-and-sum: row n of W = pinv(a_n) = a_nᴴ / ‖a_n‖².
class WDS : public Fixed {
 public:
  using Fixed::Fixed;
  int getBfAlgorithmType() const override { return BF_ALGORITHM_WDS; }
};

/// Null beamformer: W = pinv(A), so that W · A = I when A has full column rank.
class Null : public Fixed {
 public:
  using Fixed::Fixed;
  int getBfAlgorithmType() const override { return BF_ALGORITHM_NULL; }
};

/// Row n keeps unit gain towards source n and answers the other sources as little as possible in
/// the least-squares sense.
class ILSE : public Fixed {
 public:
  using Fixed::Fixed;
  int getBfAlgorithmType() const override { return BF_ALGORITHM_ILSE; }
};

}  // namespace BF
