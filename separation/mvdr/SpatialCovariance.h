#pragma once

#include <vector>

#include "geometry/Location.h"
#include "matrix/Matrix.h"
#include "separation/mvdr/ImpulseResponses.h"

namespace Separation {

/// Full-rank spatial covariance matrices of sound sources in frames that are shorter than the
/// room's responses (Duong, Vincent, Gribonval 2010): reverberation that a frame does not hold
/// beside its source arrives in later frames from many directions, which a steering vector cannot
/// say and a full matrix can.
///
/// A source that emits white noise of variance 1 through the responses h_i reaches microphone i as
/// x_i = h_i * s. In frames of length L with the analysis window w its spectrum has the covariance
///   R_ij(k) = E[X_i(k) · conj(X_j(k))] = Σ_{|τ|<L} r_ij(τ) · ρ(τ) · e^(−j2πkτ/L),
/// with r_ij(τ) = Σ_n h_i(n + τ) · h_j(n) over the whole responses and ρ(τ) = Σ_n w(n + τ) · w(n):
/// exact, without an average over frames.
class SpatialCovariance {
 public:
  /// window: L values, the analysis window. The responses are copied. Throws
  /// std::invalid_argument when there are no positions, microphones or taps, or their number of
  /// samples does not fit.
  SpatialCovariance(ImpulseResponses impulseResponses, const std::vector<float>& window);

  int bins() const { return static_cast<int>(frameLength / 2 + 1); }
  int microphones() const { return static_cast<int>(responses.microphones); }

  /// K matrices R(k), M × M and Hermitian, of the position in the grid that is nearest to a point;
  /// where the point lies between positions, the mean over those that are at most 1.5 times as far
  /// away as the nearest, weighted by 1/distance².
  std::vector<BF::Matrix> at(const BF::Location& point) const;

  /// K matrices of position p of the grid.
  std::vector<BF::Matrix> ofPosition(std::size_t p) const;

 private:
  ImpulseResponses responses;
  std::size_t frameLength;
  std::vector<double> rho;  // ρ(τ) for τ = 0 … L − 1
};

}  // namespace Separation
