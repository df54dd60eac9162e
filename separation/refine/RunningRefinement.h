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

/// Separates anew what a first method separated, frame by frame: the masks of the first outputs
/// (powerShares) say to whom a bin's power belongs, and give each source its covariance, from which
/// SoudenWeights follow. Covariances know the room, which the first method's database may not
/// (masks and covariances in this way: Heymann, Drude, Haeb-Umbach, "Neural network based spectral
/// mask estimation for acoustic beamforming", 2016; Higuchi, Ito, Yoshioka, Nakatani, "Robust MVDR
/// beamforming using time-frequency masks for online/offline ASR in noise", 2016).
///
/// The n-th frame with source s changes its covariance of a bin by
///   R_s ← (1 − w) · R_s + w · m_s · x · xᴴ,   w = max(1/n, 1 − λ),
/// then the new weights give the source's output, as the reference microphone hears it. Bins
/// without power and with values that are not finite leave the covariances alone. They belong to
/// the source's id, also when it moves, and are forgotten when it has been away for 5/(1 − λ)
/// frames.
class RunningRefinement {
 public:
  /// forgetting: λ, 0 to 1; loading: that of SoudenWeights.
  RunningRefinement(int microphones, int bins, double forgetting, double loading,
                    int referenceMicrophone);

  /// One frame: X (M × K) are the microphones' spectra, Y (listed sources × K) those that the first
  /// method separated; of these, `rows` take part and are replaced. Allocates only for new sources
  /// and more rows than before; throws before anything is changed.
  void refine(const std::vector<BF::SourceLocation>& listed, const std::vector<std::size_t>& rows,
              const BF::Matrix& X, BF::Matrix& Y);

 private:
  struct State {
    int id = 0;
    std::int64_t frames = 0;
    std::int64_t last = 0;  // the frame in which it was listed last
    Covariance R;
  };
  void findStates(const std::vector<BF::SourceLocation>& listed,
                  const std::vector<std::size_t>& rows);

  std::size_t M;
  std::size_t K;
  double lambda;
  SoudenWeights weights;
  std::list<State> states;
  std::int64_t frame = 0;
  // Of the frame's sources:
  std::vector<State*> present;
  std::vector<double> masks;
  std::vector<const std::complex<double>*> R;
  std::vector<std::complex<double>> W;
};

}  // namespace Separation
