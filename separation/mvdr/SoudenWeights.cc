#include "separation/mvdr/SoudenWeights.h"

#include <algorithm>
#include <cstddef>

namespace Separation {

SoudenWeights::SoudenWeights(int microphones, int referenceMicrophone, double loading)
    : M(microphones),
      u(referenceMicrophone),
      lambda(loading),
      sum(M, M),
      Rn(M, M),
      G(M, M),
      factor(M) {}

void SoudenWeights::compute(const std::vector<const std::complex<double>*>& R,
                            std::complex<double>* W) {
  const auto N = static_cast<std::ptrdiff_t>(R.size());
  std::fill(W, W + N * M, 0.0);
  sum.setZero();
  for (const std::complex<double>* Ri : R) sum += Eigen::Map<const Dense>(Ri, M, M);
  const double sigma = sum.trace().real() / (static_cast<double>(M) * static_cast<double>(N));
  if (!(sigma > 0.0)) return;

  for (std::ptrdiff_t s = 0; s < N; ++s, W += M) {
    const Eigen::Map<const Dense> Rs(R[static_cast<std::size_t>(s)], M, M);
    Rn = sum - Rs;
    Rn.diagonal().array() += lambda * sigma;
    factor.compute(Rn);
    G = Rs;
    factor.solveInPlace(G);
    const double trace = G.trace().real();
    if (!(trace > 0.0)) continue;
    for (int m = 0; m < M; ++m) W[m] = std::conj(G(m, u)) / trace;
  }
}

}  // namespace Separation
