#pragma once

#include <complex>
#include <cstddef>
#include <vector>

namespace Separation {

/// MVDR weights (minimum variance, distortionless response) for M microphones in D frames, from
/// covariances that may have full rank. x holds the spectra of the newest frame, then those of the
/// earlier ones, u is the element that is the reference microphone's in the newest frame, and R_s =
/// E[x · xᴴ] of source s alone. Of this,
///   a = R_s · u / σ_s,   σ_s = uᴴ · R_s · u,
/// is what can be told from the source as the reference microphone hears it: the least-squares
/// relative transfer function. What is left of R_s are echoes that come later than the frame that
/// they belong to. They count as noise as well, but for a tenth:
///   R_v = Σ_{i≠s} R_i + ν · (R_s − σ_s · a · aᴴ) + λ · σ · I,   ν = 0.1,
///   σ = tr(Σ_i R_i) / (M · N),
///   w = R_v⁻¹ · a / (aᴴ · R_v⁻¹ · a),   row s of W = wᴴ.
/// No row that passes a unchanged lets less of R_v through. ν = 1 would be the best estimate of the
/// reference's image, ν = 0 holds the others back most.
///
/// Filters over several frames: Talmon, Cohen, Gannot, "Convolutive transfer function generalized
/// sidelobe canceler", 2009; Nakatani, Kinoshita, "A unified convolutional beamformer for
/// simultaneous denoising and dereverberation", 2019.
class MvdrWeights {
 public:
  /// loading: λ > 0; referenceMicrophone counts from 0.
  MvdrWeights(int microphones, int frames, int referenceMicrophone, double loading);

  /// One bin: R holds of N sources D blocks of M × M values, row by row: block d is the covariance
  /// of the newest frame with that d steps earlier, E[x_0 · x_dᴴ]. W gets N × (D · M) values. A
  /// source that the reference microphone does not hear gets a row of zeros, as one whose R_v
  /// rounding leaves without an inverse. Allocates nothing.
  void compute(const std::vector<const std::complex<double>*>& R, std::complex<double>* W);

  /// About what compute takes for N sources.
  double nanosecondsFor(std::size_t N) const {
    const auto n = static_cast<double>(D * M);
    return 0.2 * static_cast<double>(N) * n * n * n;
  }

 private:
  using Values = std::vector<std::complex<double>>;

  void assemble(const std::complex<double>* Rs, double sigmaS);

  std::size_t M;
  std::size_t D;
  std::size_t u;
  double lambda;
  Values sum;     // Σ R_i, D × M × M
  Values blocks;  // the same without (1 − ν) · R_s
  Values Rv;      // the lower triangle, then its Cholesky factor
  Values a;
  Values z;  // R_v⁻¹ · a
};

}  // namespace Separation
