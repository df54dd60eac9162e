#pragma once

#include <vector>

#include "bf/BF.h"

namespace BF {

/// Generalised sidelobe canceller of Griffiths and Jim (1982), one per source and bin, with a
/// blocking matrix from the singular vectors of the source's transfer function: a fixed quiescent
/// row q passes the source with unit gain, a blocking matrix B (B · a = 0) removes it from the
/// microphone signals, and an adaptive row wa, trained by least mean squares, subtracts from the
/// quiescent output what of the blocked signals correlates with it. Row w = q − wa · B keeps
/// w · a = 1 whatever the step (a ≠ 0).
///
/// Sources that stay (by id) keep their quiescent and separation rows; blocking matrices are built
/// anew from the current transfer functions and adaptive rows restart at zero in every
/// updateSources.
class GJ : public BF {
 public:
  /// lcAdaptive: the step is mu over twice the blocked signals' power; otherwise it is mu.
  GJ(int numFreq, int samplingRate, double soundSpeed, bool lcAdaptive, double mu);

  int getBfAlgorithmType() const override { return BF_ALGORITHM_GJ; }
  void updateSources(const std::vector<SourceLocation>& newSources) override;
  void adaptSeparationMatrices() override;

  std::vector<Matrix> quiescentWeights;  ///< entry k: N × M, row j is pinv(a_j)
  std::vector<Matrix> blockingMatrices;  ///< entry k · N + j: (M − 1) × M
  std::vector<Matrix> adaptiveWeights;   ///< entry k: N × (M − 1)
  double mu;                             ///< step size, or its multiplier when adaptive
  bool lcAdaptive;                       ///< whether the step follows the signal's power

 private:
  /// What a member of the team works with: a bin's observation x (M × 1) and, of one source,
  /// z = B · x (M − 1 × 1), its adaptive row (1 × M − 1) and wa · B (1 × M).
  struct Member {
    Matrix x, z, wa, waB;
  };
  void adaptBins(int first, int end, Member& its);
  double normalisedStep(const Matrix& z) const;

  std::vector<Matrix> spareAdaptive;  // storage of the adaptive weights that were replaced last
  std::vector<Member> members;
};

}  // namespace BF
