#include "bf/LCMV.h"

#include <complex>
#include <cstddef>
#include <utility>

namespace BF {

namespace {

/// Squared norms of transfer functions below this are replaced by it.
constexpr double SMALL_SQUARED_NORM = 0.000001;

}  // namespace

LCMV::LCMV(int numFreqValue, int samplingRateValue, double soundSpeedValue, bool lcAdaptiveValue,
           double muValue)
    : BF(numFreqValue, samplingRateValue, soundSpeedValue),
      mu(muValue),
      lcAdaptive(lcAdaptiveValue) {}

void LCMV::updateSources(const std::vector<SourceLocation>& newSources) {
  findPrevious(newSources);
  gatherTransferFunctions(newSources);
  if (nothingChanges()) {
    sources = newSources;
    return;
  }

  const std::vector<Matrix>& tf = spareTransferFunctions;
  const int N = static_cast<int>(newSources.size());
  const int oldN = static_cast<int>(sources.size());
  std::vector<Matrix> newQuiescent;
  std::vector<Matrix> newProjections;
  std::vector<Matrix> newMatrices;
  for (int k = 0; k < numFreq; ++k) {
    const int M = tf[k].getRowCount();
    Matrix F(N, M);
    Matrix W(N, M);
    for (int j = 0; j < N; ++j) {
      const int p = previous[j];
      if (p >= 0) {
        copyRow(quiescentWeights[k], p, F, j);
        copyRow(separationMatrices[k], p, W, j);
        newProjections.push_back(projectionMatrices[k * oldN + p]);
        continue;
      }
      // f = q · aᴴ and P = I − a · q · aᴴ with q = 1 / (aᴴ · a)
      const Matrix a = tf[k].getColumn(j);
      const Matrix aH = a.transposed(true);
      std::complex<double> s = (aH * a).scalar();
      if (std::abs(s) < SMALL_SQUARED_NORM) s = SMALL_SQUARED_NORM;
      const std::complex<double> q = std::complex<double>(1.0, 0.0) / s;
      F.setRow(j, aH * q);
      W.setRow(j, aH * q);
      newProjections.push_back(Matrix::I(M) - a * q * aH);
    }
    newQuiescent.push_back(std::move(F));
    newMatrices.push_back(std::move(W));
  }

  std::vector<SourceLocation> newList(newSources);
  sources.swap(newList);
  quiescentWeights.swap(newQuiescent);
  projectionMatrices.swap(newProjections);
  transferFunctions.swap(spareTransferFunctions);
  separationMatrices.swap(newMatrices);
}

// w ← (w − μ · y · xᴴ) · P + f for every row w of every bin's W.
void LCMV::adaptSeparationMatrices() {
  const int N = static_cast<int>(sources.size());
  const int M = inputSpectrum.getRowCount();
  if (numFreq > 0) requireSeparationMatrices();
  prepare(spareMatrices, N, M);
  members.resize(team.size());
  team.share(numFreq, 1.0 * N * M * M,
             [this](int first, int end, int member) { adaptBins(first, end, members[member]); });
  separationMatrices.swap(spareMatrices);
}

void LCMV::adaptBins(int first, int end, Member& its) {
  auto& [x, stepped, projected] = its;
  const int N = static_cast<int>(sources.size());
  const int M = inputSpectrum.getRowCount();
  reshape(x, M, 1);
  reshape(stepped, 1, M);
  reshape(projected, 1, M);
  for (int k = first; k < end; ++k) {
    Matrix& W = spareMatrices[k];
    copyColumn(inputSpectrum, k, x);
    const double step = lcAdaptive ? normalisedStep(x) : mu;
    for (int n = 0; n < N; ++n) {
      copyRow(separationMatrices[k], n, stepped, 0);
      const std::complex<double>& y = outputSpectrum.getElementAt(n, k);
      const std::complex<double> stepY(step * y.real(), step * y.imag());
      for (int m = 0; m < M; ++m) stepped.data()[m] -= std::conj(x.data()[m]) * stepY;
      multiplyInto(stepped, projectionMatrices[k * N + n], projected);
      const auto f = quiescentWeights[k].row(n);
      const auto w = W.row(n);
      const auto p = projected.row(0);
      for (int m = 0; m < M; ++m) w[m] = p[m] + f[m];
    }
  }
}

// mu over twice the input power p = ‖x‖².
double LCMV::normalisedStep(const Matrix& x) const {
  const double p = x.norm().real();
  if (BF_EPS > p) return mu * 1.0 / (2.0 * p + BF_EPS);
  return mu * 1.0 / (2.0 * p);
}

}  // namespace BF
