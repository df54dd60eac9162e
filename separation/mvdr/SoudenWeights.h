#pragma once

#include <Eigen/Cholesky>
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
  /// A source without power gets a row of zeros; without any power all are. Allocates nothing.
  void compute(const std::vector<const std::complex<double>*>& R, std::complex<double>* W);

 private:
  using Dense =
      Eigen::Matrix<std::complex<double>, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

  int M;
  int u;
  double lambda;
  Dense sum, Rn, G;
  Eigen::LLT<Dense> factor;
};

}  // namespace Separation
