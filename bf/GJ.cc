#include "bf/GJ.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <utility>

namespace BF {

namespace {

/// B with B · a = 0 for the M × 1 column a: row i is (column i + 1 of a's left singular vectors)ᴴ.
Matrix blockingMatrix(const Matrix& a) {
  const int M = a.getRowCount();
  Matrix U;
  Matrix S;
  Matrix V;
  a.singularValueDecomposition(U, S, V);
  const int first = std::min(1, M);
  return U.getSubmatrix(0, first, M, M - first).transposed(true);
}

}  // namespace

GJ::GJ(int numFreqValue, int samplingRateValue, double soundSpeedValue, bool lcAdaptiveValue,
       double muValue)
    : BF(numFreqValue, samplingRateValue, soundSpeedValue),
      mu(muValue),
      lcAdaptive(lcAdaptiveValue) {}

void GJ::updateSources(const std::vector<SourceLocation>& newSources) {
  findPrevious(newSources);
  gatherTransferFunctions(newSources);
  if (nothingChanges()) {
    sources = newSources;
    for (Matrix& weights : adaptiveWeights) {
      std::fill_n(weights.data(), std::ptrdiff_t{weights.getRowCount()} * weights.getColumnCount(),
                  0.0);
    }
    return;
  }

  const std::vector<Matrix>& tf = spareTransferFunctions;
  const int N = static_cast<int>(newSources.size());
  const int oldN = static_cast<int>(sources.size());
  std::vector<Matrix> newQuiescent;
  std::vector<Matrix> newBlocking;
  std::vector<Matrix> newAdaptive;
  std::vector<Matrix> newMatrices;
  for (int k = 0; k < numFreq; ++k) {
    const int M = tf[k].getRowCount();
    Matrix Q(N, M);
    Matrix W(N, M);
    for (int j = 0; j < N; ++j) {
      const Matrix a = tf[k].getColumn(j);
      const int p = previous[j];
      if (p >= 0) {
        copyRow(quiescentWeights[k], p, Q, j);
        copyRow(separationMatrices[k], p, W, j);
      } else {
        const Matrix q = a.pseudoInverse();
        Q.setRow(j, q);
        W.setRow(j, q);
      }
      // A source that stays and still has the same column keeps the same blocking matrix.
      const bool known = p >= 0 && sameBits(a, transferFunctions[k].getColumn(p));
      newBlocking.push_back(known ? blockingMatrices[k * oldN + p] : blockingMatrix(a));
    }
    newQuiescent.push_back(std::move(Q));
    newAdaptive.push_back(Matrix(N, std::max(M - 1, 0)));
    newMatrices.push_back(std::move(W));
  }

  std::vector<SourceLocation> newList(newSources);
  sources.swap(newList);
  quiescentWeights.swap(newQuiescent);
  blockingMatrices.swap(newBlocking);
  adaptiveWeights.swap(newAdaptive);
  transferFunctions.swap(spareTransferFunctions);
  separationMatrices.swap(newMatrices);
}

// z = B · x, wa ← wa + μ · y · zᴴ, w = q − wa · B for every source of every bin.
void GJ::adaptSeparationMatrices() {
  const int N = static_cast<int>(sources.size());
  const int M = inputSpectrum.getRowCount();
  if (numFreq > 0) requireSeparationMatrices();
  prepare(spareAdaptive, N, std::max(M - 1, 0));
  prepare(spareMatrices, N, M);
  members.resize(team.size());
  team.share(numFreq, 2.0 * N * M * M,
             [this](int first, int end, int member) { adaptBins(first, end, members[member]); });
  adaptiveWeights.swap(spareAdaptive);
  separationMatrices.swap(spareMatrices);
}

void GJ::adaptBins(int first, int end, Member& its) {
  auto& [x, z, wa, waB] = its;
  const int N = static_cast<int>(sources.size());
  const int M = inputSpectrum.getRowCount();
  const int blocked = std::max(M - 1, 0);
  reshape(x, M, 1);
  reshape(z, blocked, 1);
  reshape(wa, 1, blocked);
  reshape(waB, 1, M);
  for (int k = first; k < end; ++k) {
    Matrix& W = spareMatrices[k];
    Matrix& Wa = spareAdaptive[k];
    copyColumn(inputSpectrum, k, x);
    for (int n = 0; n < N; ++n) {
      const Matrix& B = blockingMatrices[k * N + n];
      multiplyInto(B, x, z);
      const std::complex<double>& y = outputSpectrum.getElementAt(n, k);
      const double step = lcAdaptive ? normalisedStep(z) : mu;
      const std::complex<double> stepY = y * std::complex<double>(step, 0.0);
      copyRow(adaptiveWeights[k], n, wa, 0);
      for (int i = 0; i < blocked; ++i) wa.data()[i] += std::conj(z.data()[i]) * stepY;
      multiplyInto(wa, B, waB);
      const auto q = quiescentWeights[k].row(n);
      const auto w = W.row(n);
      const auto b = waB.row(0);
      for (int m = 0; m < M; ++m) w[m] = q[m] - b[m];
      copyRow(wa, 0, Wa, n);
    }
  }
}

// mu over twice the blocked signals' power p = ‖z‖². The guard looks at p truncated to an integer,
// so it applies to every p below 1.
double GJ::normalisedStep(const Matrix& z) const {
  const double p = z.norm().real();
  if (BF_EPS > std::abs(std::trunc(p))) return mu * 1.0 / (2.0 * p + BF_EPS);
  return mu * 1.0 / (2.0 * p);
}

}  // namespace BF
