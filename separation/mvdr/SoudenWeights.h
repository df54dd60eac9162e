#pragma once

#include <complex>
#include <vector>

namespace Separation {

/// MVDR weights (minimum variance, distortionless response) in the form that needs no steering
/// vector (Souden, Benesty, Affes, "On optimal frequency-domain multichannel linear filtering for
/// noise reduction", 2010): with the covariance R_s of a source and R_n of what disturbs it,
///   G = R_n⁻¹ · R_s,   w = G · u / tr(G),   row s of W = wᴴ,
/// where u selects the reference microphone. Where R_s has rank one, no other row that passes the
/// source as the reference microphone hears it lets less of R_n through.
///
/// Of N sources, each is disturbed by the others and by noise of a microphone's own:
///   R_n = Σ_{i≠s} R_i + λ · σ · I,   σ = tr(Σ_i R_i) / (M · N).
class SoudenWeights {
 public:
  /// loading: λ > 0.
  SoudenWeights(int microphones, int referenceMicrophone, double loading);

  /// One bin: R holds N Hermitian matrices of M × M values, row by row, W gets N × M values.
  /// A source without power gets a row of zeros, as one whose R_n rounding leaves without an
  /// inverse. Allocates nothing.
  void compute(const std::vector<const std::complex<double>*>& R, std::complex<double>* W);

  /// About what compute takes for N sources.
  double nanosecondsFor(std::size_t N) const { return 1.0 * static_cast<double>(N * M * M * M); }

 private:
  using Values = std::vector<std::complex<double>>;

  std::size_t M;
  std::size_t u;
  double lambda;
  Values sum;      // Σ R_i
  Values Rn;       // R_n, then the inverse of its lower Cholesky factor; only the lower triangle
  Values inverse;  // R_n⁻¹
};

}  // namespace Separation
