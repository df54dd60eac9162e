#include "separation/refine/AngularMixture.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "separation/mvdr/FiniteProducts.h"
#include "separation/mvdr/HermitianInverse.h"

namespace Separation {

namespace {

constexpr double IDENTITY_SHARE = 0.01;
constexpr int TURNS = 5;

/// xᴴ · A · x of a Hermitian A (M × M), x_i at x[i · stride].
double quadraticForm(const std::complex<double>* A, const std::complex<double>* x,
                     std::size_t stride, std::size_t M) {
  double sum = 0.0;
  for (std::size_t i = 0; i < M; ++i) {
    const std::complex<double>& xi = x[i * stride];
    std::complex<double> row = 0.0;  // of the upper triangle
    for (std::size_t j = i + 1; j < M; ++j) row += times(A[i * M + j], x[j * stride]);
    sum += A[i * M + i].real() * std::norm(xi) + 2.0 * timesConjugate(row, xi).real();
  }
  return sum;
}

}  // namespace

AngularMixture::AngularMixture(int microphones, int bins)
    : M(static_cast<std::size_t>(microphones)), K(static_cast<std::size_t>(bins)), work(M * M) {}

// B is brought to trace M; how large it is cancels out.
void AngularMixture::learn(Covariance& B, std::vector<double>& logDeterminants) {
  logDeterminants.assign(K, 0.0);
  for (std::size_t k = 0; k < K; ++k) {
    std::complex<double>* Bk = B.data() + k * M * M;
    double trace = 0.0;
    for (std::size_t i = 0; i < M; ++i) trace += Bk[i * M + i].real();
    const double scale = (1.0 - IDENTITY_SHARE) * static_cast<double>(M) / trace;
    for (std::size_t i = 0; i < M * M; ++i) work[i] = scale * Bk[i];
    for (std::size_t i = 0; i < M; ++i) work[i * M + i] += IDENTITY_SHARE;
    if (trace > 0.0 && invertHermitian(M, work.data(), Bk, &logDeterminants[k])) continue;
    logDeterminants[k] = 0.0;
    for (std::size_t i = 0; i < M * M; ++i) Bk[i] = i % (M + 1) == 0 ? 1.0 : 0.0;
  }
}

void AngularMixture::load(const std::vector<Component>& components, const BF::Matrix& X) {
  N = components.size();
  q.assign(K * N, 1.0);
  likelihoods.assign(K * N, 0.0);
  shares.assign(N, 1.0 / static_cast<double>(N));
  sums.resize(N);
  current.resize(N);
  for (std::size_t k = 0; k < K; ++k) findLikelihoods(components, X, k);

  for (int turn = 0; turn < TURNS; ++turn) {
    std::fill(sums.begin(), sums.end(), 0.0);
    std::size_t count = 0;
    for (std::size_t k = 0; k < K; ++k) {
      if (!masks(k, current)) continue;
      ++count;
      for (std::size_t s = 0; s < N; ++s) sums[s] += current[s];
    }
    if (count == 0) return;
    for (std::size_t s = 0; s < N; ++s) shares[s] = sums[s] / static_cast<double>(count);
  }
}

void AngularMixture::findLikelihoods(const std::vector<Component>& components, const BF::Matrix& X,
                                     std::size_t k) {
  double* l = likelihoods.data() + k * N;
  double most = -std::numeric_limits<double>::infinity();
  for (std::size_t s = 0; s < N; ++s) {
    if (!components[s].inverse) continue;
    const double form = quadraticForm(components[s].inverse + k * M * M, X.data() + k, K, M);
    if (!(form > 0.0) || !std::isfinite(form)) return std::fill(l, l + N, 0.0);
    q[k * N + s] = form;
    l[s] = -components[s].logDeterminants[k] - static_cast<double>(M) * std::log(form);
    most = std::max(most, l[s]);
  }
  for (std::size_t s = 0; s < N; ++s) l[s] = components[s].inverse ? std::exp(l[s] - most) : 0.0;
}

bool AngularMixture::masks(std::size_t k, std::vector<double>& result) const {
  double total = 0.0;
  for (std::size_t s = 0; s < N; ++s) {
    result[s] = shares[s] * likelihoods[k * N + s];
    total += result[s];
  }
  if (!(total > 0.0)) return false;
  for (std::size_t s = 0; s < N; ++s) result[s] /= total;
  return true;
}

}  // namespace Separation
