#pragma once

#include <complex>
#include <cstddef>
#include <map>
#include <vector>

#include "geometry/Location.h"
#include "separation/mvdr/FrameStack.h"
#include "separation/mvdr/ImpulseResponses.h"

namespace Separation {

/// Covariances of K bins one after the other, each M × M values, row by row; of a FrameStack D such
/// blocks in each bin.
using Covariance = std::vector<std::complex<double>>;

/// Full-rank spatial covariance matrices of sound sources (Duong, Vincent, Gribonval, "Under-
/// determined reverberant audio source separation using a full-rank spatial covariance model",
/// 2010), in frames that may be shorter than the room's responses: what a frame does not hold
/// beside its source arrives later and from many directions, which a steering vector cannot say
/// and a full matrix can.
///
/// A source that emits white noise of variance 1 through the responses h_i reaches microphone i as
/// x_i = h_i * s. In frames of length L with the analysis window w its spectrum has the covariance
///   R_ij(k) = E[X_i(k) · conj(X_j(k))] = Σ_{|τ|<L} r_ij(τ) · ρ(τ) · e^(−j2πkτ/L),
/// with r_ij(τ) = Σ_n h_i(n + τ) · h_j(n) over the whole responses and ρ(τ) = Σ_n w(n + τ) · w(n):
/// exact, without an average over frames. With the frame that begins A samples earlier the
/// covariance E[X_i(k) · conj(X'_j(k))] is the same sum with r_ij(A + τ) instead of r_ij(τ).
class SpatialCovariance {
 public:
  /// window: L values, the analysis window. There are positions, microphones and taps, and the
  /// samples of each. Block d of a bin is the covariance of a frame with that which is d steps of
  /// the stack earlier, d = 0 … D − 1.
  SpatialCovariance(ImpulseResponses impulseResponses, const std::vector<float>& window,
                    const FrameStack& frameStack = {});

  std::size_t bins() const { return L / 2 + 1; }
  std::size_t microphones() const { return responses.microphones; }
  const FrameStack& stack() const { return frames; }

  /// The covariance at a point: that of the position that is less than 1 mm away, or the mean over
  /// the positions that are at most 1.5 times as far away as the nearest, weighted by 1/distance².
  /// A point nearer to the origin than all positions, or farther, first moves along its direction
  /// to their range.
  Covariance at(const BF::Location& point);

  /// That of position p. It is computed once, and kept unless many large ones are.
  const Covariance& ofPosition(std::size_t p);

 private:
  Covariance computed(std::size_t p) const;
  std::size_t lag(std::size_t d) const;

  ImpulseResponses responses;
  std::size_t L;
  FrameStack frames;
  std::vector<double> rho;  // ρ(τ) for τ = 0 … L − 1
  std::map<std::size_t, Covariance> known;
};

}  // namespace Separation
