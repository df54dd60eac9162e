#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>
#include <list>
#include <vector>

#include "bf/BF.h"
#include "separation/mvdr/SoudenWeights.h"
#include "separation/mvdr/SpatialCovariance.h"
#include "separation/refine/AngularMixture.h"

namespace Separation {

/// Separates a whole recording by the SoudenWeights of covariances that masks give it, the masks
/// getting better from pass to pass. The passes are:
/// 1. gather() weighs directions of frames by what was separated before (powerShares);
/// 2. as many as there are rounds: gather() weighs them by the masks of AngularMixture that the
///    pass before learnt, the last of these gathering covariances, R_s = mean of m_s · x · xᴴ over
///    the frames in which the source is listed;
/// 3. refine() separates.
/// Masks that say which covariances count: Heymann, Drude, Haeb-Umbach 2016 and Higuchi, Ito,
/// Yoshioka, Nakatani 2016, as in RunningRefinement; a mixture that a first guess guides: Boeddeker
/// et al., "Front-end processing for the CHiME-5 dinner party scenario", 2018.
///
/// A source that comes and goes keeps its covariance. One that moves has a covariance for every
/// place: a place counts as one that the source was at before if it is at most a tenth of its
/// distance from the origin away from it (6°), and the nearest of 64 does when there are as many.
class RecordingRefinement {
 public:
  /// rounds: 1 or more; loading: that of SoudenWeights.
  RecordingRefinement(int microphones, int bins, int rounds, double loading,
                      int referenceMicrophone);

  /// Takes a frame of a pass that gathers: X (M × K) are the microphones' spectra; `rows` of the
  /// listed sources take part. Y (listed sources × K), what was separated, counts in the first pass
  /// alone. Throws before anything is changed.
  void gather(const std::vector<BF::SourceLocation>& listed, const std::vector<std::size_t>& rows,
              const BF::Matrix& X, const BF::Matrix& Y);

  /// Ends a pass: the next one uses what was gathered in it.
  void nextPass();

  /// Separates a frame in the last pass: Y becomes listed sources × K. Rows that take no part are
  /// 0, as are sources that were not listed in the passes before.
  void refine(const std::vector<BF::SourceLocation>& listed, const std::vector<std::size_t>& rows,
              const BF::Matrix& X, BF::Matrix& Y);

 private:
  struct Place {
    int id = 0;
    BF::Location at{0, 0, 0};
    std::int64_t frames = 0;
    // In `gathered` the sum over the frames: of directions or, in the last pass that gathers, of
    // x · xᴴ. In `earlier` what the former make of an AngularMixture, or the mean of the latter.
    Covariance R;
    std::vector<double> logDeterminants;  // of the mixture
  };
  using Places = std::list<Place>;

  static Place* nearest(Places& places, const BF::SourceLocation& source);
  Place& placeOf(const BF::SourceLocation& source);
  bool isLastGathering() const { return pass == rounds; }
  void computeWeights();

  std::size_t M;
  std::size_t K;
  int rounds;
  int pass = 0;
  AngularMixture mixture;
  SoudenWeights weights;
  Places gathered;
  Places earlier;
  std::vector<Place*> present;  // of the frame that is gathered
  std::vector<AngularMixture::Component> components;
  std::vector<const Place*> inForce;  // whose weights W holds, a null for a source without place
  std::vector<const Place*> wanted;
  std::vector<double> masks;
  std::vector<std::complex<double>> W;  // K × N × M
};

}  // namespace Separation
