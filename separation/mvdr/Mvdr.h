#pragma once

#include <vector>

#include "bf/BF.h"
#include "separation/Settings.h"
#include "separation/mvdr/MvdrWeights.h"
#include "separation/mvdr/SpatialCovariance.h"

namespace Separation {

/// MVDR from whole impulse responses: MvdrWeights of the SpatialCovariance at every listed source,
/// targets and noise, all of equal level. Outputs are the sources as the reference microphone hears
/// them. Frames before the first one count as silent.
///
/// A method of this project's own beside the engine's; what it takes from the engine is the base
/// that applies the matrices to a frame, which here have D · M columns for a FrameStack of D.
class Mvdr : public BF::BF {
 public:
  /// referenceMicrophone counts from 0; loading is λ of MvdrWeights.
  Mvdr(SpatialCovariance spatialCovariance, int samplingRateHz, int referenceMicrophone,
       double loading);

  int getBfAlgorithmType() const override { return ALGORITHM_MVDR; }

  /// Rebuilds W unless the sources have the places of those in force, in the same order.
  void updateSources(const std::vector<::BF::SourceLocation>& newSources) override;

  /// Separates one frame, M × K, which follows the one before.
  void executeBeamForming(const ::BF::Matrix& input, ::BF::Matrix& output) override;

  /// Takes a frame that is not to be separated, nobody being listed: the next ones know it.
  /// Throws MatrixSizeMismatchException when it is not M × K.
  void hear(const ::BF::Matrix& input);

  /// The next frame is the first one of a recording.
  void startOver();

  /// Does nothing.
  void adaptSeparationMatrices() override {}

 private:
  void requireFits(const ::BF::Matrix& input) const;

  SpatialCovariance covariance;
  std::vector<MvdrWeights> weights;           // one for each member of the team
  std::vector<Covariance> sourceCovariances;  // of the sources in force
  std::vector<::BF::Matrix> earlier;          // frame f is at f modulo their number
  std::size_t next = 0;                       // where the next frame will be
  ::BF::Matrix stacked;                       // D · M × K
};

}  // namespace Separation
