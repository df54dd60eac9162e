#include "bf/LCMV.h"

#include <complex>
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
  const std::vector<int> previous = previousIndices(newSources);
  std::vector<Matrix> tf;
  getTransformFunctions(newSources, tf);

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
        F.setRow(j, quiescentWeights[k].getRow(p));
        W.setRow(j, separationMatrices[k].getRow(p));
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
  transferFunctions.swap(tf);
  separationMatrices.swap(newMatrices);
}

// w ← (w − μ · y · xᴴ) · P + f for every row w of every bin's W.
void LCMV::adaptSeparationMatrices() {
  const int N = static_cast<int>(sources.size());
  std::vector<Matrix> newMatrices;
  for (int k = 0; k < numFreq; ++k) {
    Matrix W = separationMatrices[k];
    const Matrix x = inputSpectrum.getColumn(k);
    const Matrix xH = x.transposed(true);
    for (int n = 0; n < N; ++n) {
      const Matrix f = quiescentWeights[k].getRow(n);
      const Matrix& P = projectionMatrices[k * N + n];
      const std::complex<double>& y = outputSpectrum.getElementAt(n, k);
      const double step = lcAdaptive ? normalisedStep(x) : mu;
      const std::complex<double> stepY(step * y.real(), step * y.imag());
      W.setRow(n, (W.getRow(n) - xH * stepY) * P + f);
    }
    newMatrices.push_back(std::move(W));
  }
  separationMatrices.swap(newMatrices);
}

// mu over twice the input power p = ‖x‖².
double LCMV::normalisedStep(const Matrix& x) const {
  const double p = x.norm().real();
  if (BF_EPS > p) return mu * 1.0 / (2.0 * p + BF_EPS);
  return mu * 1.0 / (2.0 * p);
}

}  // namespace BF
