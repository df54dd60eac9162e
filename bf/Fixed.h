#pragma once

#include <memory>
#include <vector>

#include "bf/BF.h"

namespace BF {

/// Beamformers whose separation matrices follow in closed form from the transfer functions and
/// never adapt. For every source n with transfer function a_n ≠ 0: row n of W · a_n = 1 (for Null,
/// when the sources' transfer functions are linearly independent).
class Fixed : public BF {
 public:
  /// As BF::BF.
  Fixed(int numFreq, int samplingRate, double soundSpeed);
  ~Fixed() override;

  /// Rebuilds every bin's separation matrix by the formula of getBfAlgorithmType().
  void updateSources(const std::vector<SourceLocation>& newSources) override;

  /// Does nothing.
  void adaptSeparationMatrices() override;

 private:
  class Group;
  struct Work;
  void compute(int first, int end, int member);

  std::unique_ptr<Work> work;  // what is kept from update to update
};

/// Delay-and-sum: every microphone with the same weight after phase alignment (Van Trees, Optimum
/// Array Processing, 2002, chapter 2).
class DS : public Fixed {
 public:
  using Fixed::Fixed;
  int getBfAlgorithmType() const override { return BF_ALGORITHM_DS; }
};

/// Weighted delay-and-sum, the matched filter: row n of W = pinv(a_n) = a_nᴴ / ‖a_n‖².
class WDS : public Fixed {
 public:
  using Fixed::Fixed;
  int getBfAlgorithmType() const override { return BF_ALGORITHM_WDS; }
};

/// Null beamformer: W = pinv(A), so that W · A = I when A has full column rank (Van Trees 2002,
/// chapter 3).
class Null : public Fixed {
 public:
  using Fixed::Fixed;
  int getBfAlgorithmType() const override { return BF_ALGORITHM_NULL; }
};

/// Row n keeps unit gain towards source n and answers the other sources as little as possible in
/// the least-squares sense: equality-constrained least squares by the null-space method (Lawson &
/// Hanson, Solving Least Squares Problems, 1974, chapter 20).
class ILSE : public Fixed {
 public:
  using Fixed::Fixed;
  int getBfAlgorithmType() const override { return BF_ALGORITHM_ILSE; }
};

}  // namespace BF
