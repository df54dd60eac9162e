#include "separation/mvdr/SoudenWeights.h"

#include <algorithm>
#include <cstddef>

#include "separation/mvdr/FiniteProducts.h"
#include "separation/mvdr/HermitianInverse.h"

namespace Separation {

namespace {

using Complex = std::complex<double>;

}  // namespace

SoudenWeights::SoudenWeights(int microphones, int referenceMicrophone, double loading)
    : M(static_cast<std::size_t>(microphones)),
      u(static_cast<std::size_t>(referenceMicrophone)),
      lambda(loading),
      sum(M * M),
      Rn(M * M),
      inverse(M * M) {}

void SoudenWeights::compute(const std::vector<const Complex*>& R, Complex* W) {
  const std::size_t N = R.size();
  std::fill(W, W + N * M, 0.0);
  std::fill(sum.begin(), sum.end(), 0.0);
  for (const Complex* Ri : R) {
    for (std::size_t i = 0; i < M * M; ++i) sum[i] += Ri[i];
  }
  double sigma = 0.0;
  for (std::size_t i = 0; i < M; ++i) sigma += sum[i * M + i].real();
  sigma /= static_cast<double>(M * N);
  if (!(sigma > 0.0)) return;

  for (std::size_t s = 0; s < N; ++s, W += M) {
    const Complex* Rs = R[s];
    for (std::size_t i = 0; i < M * M; ++i) Rn[i] = sum[i] - Rs[i];
    for (std::size_t i = 0; i < M; ++i) Rn[i * M + i] += lambda * sigma;
    if (!invertHermitian(M, Rn.data(), inverse.data())) continue;
    // tr(R_n⁻¹ · R_s) of Hermitian matrices is the sum over all elements of one times the other's
    // conjugate.
    double trace = 0.0;
    for (std::size_t i = 0; i < M * M; ++i) trace += timesConjugate(inverse[i], Rs[i]).real();
    if (!(trace > 0.0)) continue;
    for (std::size_t m = 0; m < M; ++m) {
      Complex g = 0.0;
      for (std::size_t i = 0; i < M; ++i) g += times(inverse[m * M + i], Rs[i * M + u]);
      W[m] = std::conj(g) / trace;
    }
  }
}

}  // namespace Separation
