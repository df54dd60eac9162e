#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>
#include <list>
#include <vector>

#include "bf/BF.h"
#include "bf/BinTeam.h"
#include "separation/mvdr/SoudenWeights.h"
#include "separation/mvdr/SpatialCovariance.h"

namespace Separation {

/// Separates anew what a first method separated, frame by frame: masks say to whom a bin's power
/// belongs and give each source its covariance, from which SoudenWeights follow. Covariances know
/// the room, which the first method's database may not (masks and covariances in this way: Heymann,
/// Drude, Haeb-Umbach, "Neural network based spectral mask estimation for acoustic beamforming",
/// 2016; Higuchi, Ito, Yoshioka, Nakatani, "Robust MVDR beamforming using time-frequency masks for
/// online/offline ASR in noise", 2016).
///
/// Two separations say how a bin's power is shared (powerShares): the first method's, m'_s, and
/// m"_s, that of the weights of the frame before; in a frame that changes the list, the former
/// alone. The n-th frame with source s changes its covariance of the bin by
///   m_s = m'_s · m"_s / Σ_i m'_i · m"_i,
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

  BF::BinTeam team;  ///< threads that share the bins

 private:
  struct State {
    int id = 0;
    std::int64_t frames = 0;
    std::int64_t last = 0;  // the frame in which it was listed last
    Covariance R;
  };
  void findStates(const std::vector<BF::SourceLocation>& listed,
                  const std::vector<std::size_t>& rows);
  /// What a member of the team works with, for the sources of a bin.
  struct Member {
    std::vector<double> masks;
    std::vector<double> refinedShares;
    std::vector<const std::complex<double>*> R;
    SoudenWeights weights;
  };
  bool findMasks(const std::vector<std::size_t>& rows, const BF::Matrix& X, std::size_t k,
                 BF::Matrix& Y, Member& its) const;
  void refineBin(const std::vector<std::size_t>& rows, const BF::Matrix& X, std::size_t k,
                 BF::Matrix& Y, Member& its);

  std::size_t M;
  std::size_t K;
  double lambda;
  std::vector<Member> members;
  std::list<State> states;
  std::int64_t frame = 0;
  // Of the frame's sources:
  std::vector<State*> present;
  // K × N × M: the weights, while they are those of the frame before for the same sources.
  std::vector<std::complex<double>> W;
  std::vector<State*> ofWeights;
  bool hasWeights = false;
};

}  // namespace Separation
