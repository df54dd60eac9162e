#pragma once

#include <vector>

#include "bf/BF.h"
#include "separation/mvdr/SpatialCovariance.h"

namespace Separation {

/// Settings of Mvdr.
struct MvdrSettings {
  int referenceMicrophone = 0;  ///< from 0: outputs are the sources as this microphone hears them
  double loading = 1e-4;        ///< diagonal loading as a share of a microphone's mean power, > 0
};

/// MVDR beamformer (minimum variance, distortionless response) in the form of Souden, Benesty,
/// Affes 2010, which needs no steering vector: for source s, with the full-rank covariance R_s of
/// the source and R_n of what disturbs it,
///   G = R_n⁻¹ · R_s,   row s of W = (G · u / tr(G))ᴴ,
/// where u selects the reference microphone. It has the least power of R_n of all rows that pass
/// the source's rank-1 part as the reference microphone hears it.
///
/// Here R_n(k) = Σ_{i≠s} R_i(k) + λ · σ(k) · I over all listed sources, targets and noise, with
/// σ(k) = tr(Σ_i R_i(k)) / (M · N): the covariances are those of the positions, for sources of
/// equal level, and λ stands for what is not listed, such as the microphones' own noise.
///
/// A method of this project's own beside the engine's; what it takes from the engine is the base
/// that applies the matrices to a frame.
class Mvdr : public BF::BF {
 public:
  /// The number that getBfAlgorithmType() returns; those of the engine end at 11.
  static constexpr int TYPE = 101;

  /// The covariances must outlive the engine; numFreq is their number of bins. Throws
  /// std::invalid_argument when the reference microphone is none of theirs or λ is not positive.
  Mvdr(const SpatialCovariance& spatialCovariance, int samplingRateHz, const MvdrSettings& given);

  int getBfAlgorithmType() const override { return TYPE; }

  /// Rebuilds W unless the list has the positions of the one in force, in the same order.
  void updateSources(const std::vector<::BF::SourceLocation>& newSources) override;

  /// Does nothing.
  void adaptSeparationMatrices() override;

 private:
  const SpatialCovariance& covariance;
  MvdrSettings settings;
  // R(k) of the sources in force: N lists of K matrices.
  std::vector<std::vector<::BF::Matrix>> sourceCovariances;
};

}  // namespace Separation
