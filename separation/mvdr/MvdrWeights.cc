#include "separation/mvdr/MvdrWeights.h"

#include <algorithm>
#include <cstddef>

#include "separation/mvdr/FiniteProducts.h"
#include "separation/mvdr/HermitianInverse.h"

namespace Separation {

namespace {

using Complex = std::complex<double>;

/// ν
constexpr double LATE_ECHOES = 0.1;

}  // namespace

MvdrWeights::MvdrWeights(int microphones, int frames, int referenceMicrophone, double loading)
    : M(static_cast<std::size_t>(microphones)),
      D(static_cast<std::size_t>(frames)),
      u(static_cast<std::size_t>(referenceMicrophone)),
      lambda(loading),
      sum(D * M * M),
      blocks(sum.size()),
      Rv(D * M * D * M),
      a(D * M),
      z(D * M) {}

// a, and R_v but for its loading. `blocks` says for x of stationary sources
//   E[x_bi · conj(x_cj)] = conj(block_{b−c}(j, i)),   frames b ≥ c, microphones i and j.
void MvdrWeights::assemble(const Complex* Rs, double sigmaS) {
  for (std::size_t i = 0; i < blocks.size(); ++i) blocks[i] = sum[i] - (1.0 - LATE_ECHOES) * Rs[i];
  for (std::size_t b = 0; b < D; ++b) {
    for (std::size_t i = 0; i < M; ++i) {
      a[b * M + i] = std::conj(Rs[(b * M + u) * M + i]) / sigmaS;
    }
  }
  const std::size_t n = D * M;
  for (std::size_t b = 0; b < D; ++b) {
    for (std::size_t i = 0; i < M; ++i) {
      const std::size_t row = b * M + i;
      const Complex scaled = LATE_ECHOES * sigmaS * a[row];
      for (std::size_t c = 0; c <= b; ++c) {
        const Complex* block = blocks.data() + (b - c) * M * M;
        Complex* to = Rv.data() + row * n + c * M;
        for (std::size_t j = 0; j < M; ++j) {
          to[j] = std::conj(block[j * M + i]) - timesConjugate(scaled, a[c * M + j]);
        }
      }
    }
  }
}

void MvdrWeights::compute(const std::vector<const Complex*>& R, Complex* W) {
  const std::size_t N = R.size();
  const std::size_t n = D * M;
  std::fill(W, W + N * n, 0.0);
  std::fill(sum.begin(), sum.end(), 0.0);
  for (const Complex* Ri : R) {
    for (std::size_t i = 0; i < sum.size(); ++i) sum[i] += Ri[i];
  }
  double sigma = 0.0;
  for (std::size_t i = 0; i < M; ++i) sigma += sum[i * M + i].real();
  sigma /= static_cast<double>(M * N);
  if (!(sigma > 0.0)) return;

  for (std::size_t s = 0; s < N; ++s, W += n) {
    const double sigmaS = R[s][u * M + u].real();
    if (!(sigmaS > 0.0)) continue;
    assemble(R[s], sigmaS);
    for (std::size_t i = 0; i < n; ++i) Rv[i * n + i] += lambda * sigma;
    double gain = 0.0;  // aᴴ · R_v⁻¹ · a
    if (!solveHermitian(n, Rv.data(), a.data(), z.data(), gain) || !(gain > 0.0)) continue;
    for (std::size_t i = 0; i < n; ++i) W[i] = std::conj(z[i]) / gain;
  }
}

}  // namespace Separation
