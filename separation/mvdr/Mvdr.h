#pragma once

#include <vector>

#include "bf/BF.h"
#include "separation/Settings.h"
#include "separation/mvdr/SoudenWeights.h"
#include "separation/mvdr/SpatialCovariance.h"

namespace Separation {

/// MVDR from whole impulse responses: SoudenWeights of the SpatialCovariance at every listed
/// source, targets and noise, all of equal level. Outputs are the sources as the reference
/// microphone hears them.
///
/// A method of this project's own beside the engine's; what it takes from the engine is the base
/// that applies the matrices to a frame.
class Mvdr : public BF::BF {
 public:
  /// referenceMicrophone counts from 0; loading is λ of SoudenWeights.
  Mvdr(SpatialCovariance spatialCovariance, int samplingRateHz, int referenceMicrophone,
       double loading);

  int getBfAlgorithmType() const override { return ALGORITHM_MVDR; }

  /// Rebuilds W unless the sources have the places of those in force, in the same order.
  void updateSources(const std::vector<::BF::SourceLocation>& newSources) override;

  /// Does nothing.
  void adaptSeparationMatrices() override {}

 private:
  SpatialCovariance covariance;
  std::vector<SoudenWeights> weights;         // one for each member of the team
  std::vector<Covariance> sourceCovariances;  // of the sources in force
};

}  // namespace Separation
