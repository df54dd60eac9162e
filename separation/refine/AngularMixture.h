#pragma once

#include <complex>
#include <cstddef>
#include <vector>

#include "bf/BF.h"
#include "separation/mvdr/SpatialCovariance.h"

namespace Separation {

/// Masks from where sound comes from: in every bin the direction of a frame's observation,
/// z = x / |x|, is a draw from a mixture of complex angular central Gaussians, one for each source
/// (Ito, Araki, Nakatani, "Complex angular central Gaussian mixture model for directional
/// statistics in mask-based microphone array signal processing", 2016):
///   p(z | s) ∝ det(B_s)⁻¹ · (zᴴ · B_s⁻¹ · z)^−M.
/// The source's share π_s of a frame is the same in all its bins (Ito, Araki, Nakatani,
/// "Permutation- free convolutive blind source separation via full-band clustering based on
/// frequency-independent source presence priors", 2013), so that what speaks in one bin tells about
/// the others:
///   m_s(k) = π_s · p(z_k | s) / Σ_i π_i · p(z_k | i),   π_s = mean of m_s over the bins,
/// from equal shares by five turns. A step of expectation maximisation sums up, over the frames,
///   B_s = Σ m_s · z · zᴴ / q_s,   q_s = zᴴ · B_s⁻¹ · z of the step before, at first 1,
/// of which a hundredth is replaced by the identity: a recording is short.
class AngularMixture {
 public:
  /// B⁻¹ (K × M × M) and ln det B (K) of a source; none without a guess.
  struct Component {
    const std::complex<double>* inverse = nullptr;
    const double* logDeterminants = nullptr;
  };

  AngularMixture(int microphones, int bins);

  /// Replaces the sum over frames by B⁻¹ and gives the determinants. Of a bin without sound B is
  /// the identity.
  void learn(Covariance& B, std::vector<double>& logDeterminants);

  /// Takes a frame, X (M × K).
  void load(const std::vector<Component>& components, const BF::Matrix& X);

  /// The masks of a bin of that frame, one for each component, those of sources without a guess
  /// being 0; false without sound, with values that are not finite and without any guess.
  bool masks(std::size_t k, std::vector<double>& result) const;

  /// What x · xᴴ of that bin counts in the sum for B_s, m · z · zᴴ / q_s, where there are masks.
  double weight(std::size_t k, std::size_t s, double mask) const { return mask / q[k * N + s]; }

 private:
  void findLikelihoods(const std::vector<Component>& components, const BF::Matrix& X,
                       std::size_t k);

  std::size_t M;
  std::size_t K;
  std::size_t N = 0;
  std::vector<double> q;            // K × N: xᴴ · B⁻¹ · x, which is q_s · |x|²
  std::vector<double> likelihoods;  // K × N, of each bin the largest is 1; 0 for all: no masks
  std::vector<double> shares;       // π
  std::vector<double> sums;
  std::vector<double> current;
  Covariance work;
};

}  // namespace Separation
