#pragma once

#include <vector>

#include "bf/BF.h"

namespace BF {

/// Linearly constrained minimum variance, adapted by constrained least mean squares (Frost 1972,
/// his recursion for one constraint per row): every frame each row w takes a stochastic-gradient
/// step towards less output power |y|² and is projected back onto the constraint,
///   w ← (w − μ · y · xᴴ) · P + f,  P = I − a · aᴴ / (aᴴ · a),  f = aᴴ / (aᴴ · a),
/// so that row j · a_j = 1 after every step, whatever its size (a_j ≠ 0).
///
/// Sources that stay (by id) keep their rows, quiescent rows and projections.
class LCMV : public BF {
 public:
  /// lcAdaptive: the step is mu over twice the frame's input power; otherwise it is mu.
  LCMV(int numFreq, int samplingRate, double soundSpeed, bool lcAdaptive, double mu);

  int getBfAlgorithmType() const override { return BF_ALGORITHM_LCMV; }
  void updateSources(const std::vector<SourceLocation>& newSources) override;
  void adaptSeparationMatrices() override;

  std::vector<Matrix> quiescentWeights;  ///< entry k: N × M, row j is f_j = a_jᴴ / (a_jᴴ · a_j)
  std::vector<Matrix>
      projectionMatrices;  ///< entry k · N + j: M × M, I − a_j · a_jᴴ / (a_jᴴ · a_j)
  double mu;               ///< step size, or its multiplier when adaptive
  bool lcAdaptive;         ///< whether the step follows the signal's power

 private:
  /// What a member of the team works with: a bin's observation (M × 1), and a row of W after the
  /// step and after the projection (1 × M).
  struct Member {
    Matrix x, stepped, projected;
  };
  void adaptBins(int first, int end, Member& its);
  double normalisedStep(const Matrix& x) const;

  std::vector<Member> members;
};

}  // namespace BF
