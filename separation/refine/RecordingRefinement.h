#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>
#include <list>
#include <vector>

#include "bf/BF.h"
#include "separation/mvdr/SoudenWeights.h"
#include "separation/mvdr/SpatialCovariance.h"

namespace Separation {

/// Separates a whole recording anew, pass by pass: gather() weighs the covariances of the frames by
/// the masks of what was separated (as RunningRefinement, but with the plain mean over the frames
/// in which the source is listed), and in the next pass refine() separates by their SoudenWeights.
/// A pass needs nothing of the one before but its covariances.
///
/// A source that comes and goes keeps its covariance. One that moves has a covariance for every
/// place: a place counts as one that the source was at before if it is at most a tenth of its
/// distance from the origin away from it (6°), and the nearest of 64 does when there are as many.
class RecordingRefinement {
 public:
  /// loading: that of SoudenWeights.
  RecordingRefinement(int microphones, int bins, double loading, int referenceMicrophone);

  /// Takes a frame of this pass: X (M × K) are the microphones' spectra, Y (listed sources × K) the
  /// separated ones; of these, `rows` take part. Throws before anything is changed.
  void gather(const std::vector<BF::SourceLocation>& listed, const std::vector<std::size_t>& rows,
              const BF::Matrix& X, const BF::Matrix& Y);

  /// Ends a pass: refine() uses what was gathered in it.
  void nextPass();

  /// Separates a frame by the covariances of the pass before: Y becomes listed sources × K. Rows
  /// that take no part are 0, as are sources that were not listed in that pass.
  void refine(const std::vector<BF::SourceLocation>& listed, const std::vector<std::size_t>& rows,
              const BF::Matrix& X, BF::Matrix& Y);

 private:
  struct Place {
    int id = 0;
    BF::Location at{0, 0, 0};
    std::int64_t frames = 0;
    Covariance R;  // the sum over frames in `gathered`, their mean in `earlier`
  };
  using Places = std::list<Place>;

  static Place* nearest(Places& places, const BF::SourceLocation& source);
  Place& placeOf(const BF::SourceLocation& source);
  void computeWeights();

  std::size_t M;
  std::size_t K;
  SoudenWeights weights;
  Places gathered;
  Places earlier;
  std::vector<Place*> present;        // of the frame that is gathered
  std::vector<const Place*> inForce;  // whose weights W holds, a null for a source without place
  std::vector<const Place*> wanted;
  std::vector<double> masks;
  std::vector<std::complex<double>> W;  // K × N × M
};

}  // namespace Separation
