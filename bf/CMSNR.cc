#include "bf/CMSNR.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <utility>

#include "matrix/EigenBatch.h"

namespace BF {

namespace {

/// Pairs whose eigenproblems are solved together: enough to fill the lanes of any processor.
constexpr int PAIRS_AT_ONCE = 8;

/// Row `row` of W := the uniform filter 1/√M.
void setUniform(Matrix& W, int row) {
  const int M = W.getColumnCount();
  const double weight = 1.0 / std::sqrt(static_cast<double>(M));
  for (int m = 0; m < M; ++m) W.setElementAt(row, m, weight, 0.0);
}

}  // namespace

CMSNR::CMSNR(int numFreqValue, int samplingRateValue, double soundSpeedValue,
             std::string decomposition, double alphaValue)
    : BF(numFreqValue, samplingRateValue, soundSpeedValue),
      decompositionAlgorithm(std::move(decomposition)),
      alpha(alphaValue) {
  if (decompositionAlgorithm != "GEVD" && decompositionAlgorithm != "GSVD") {
    throw InvalidStateException();
  }
}

void CMSNR::updateSources(const std::vector<SourceLocation>& newSources) {
  const std::vector<int> previous = previousIndices(newSources);
  const int N = static_cast<int>(newSources.size());
  const int oldN = static_cast<int>(sources.size());
  const int M = numMic;
  if (keepsOrder(previous) && holdsMatricesFor(M)) {
    sources = newSources;
    return;
  }

  std::vector<Matrix> newSignal;
  std::vector<Matrix> newNoise;
  std::vector<Factor> newFactors;
  std::vector<Matrix> newMatrices;
  for (int k = 0; k < numFreq; ++k) {
    Matrix W(N, M);
    for (int i = 0; i < N; ++i) {
      const int j = previous[i];
      if (j < 0) {
        newSignal.push_back(Matrix::I(M));
        newNoise.push_back(Matrix::I(M));
        newFactors.emplace_back();
        setUniform(W, i);
      } else {
        newSignal.push_back(signalCorrelations[k * oldN + j]);
        newNoise.push_back(noiseCorrelations[k * oldN + j]);
        newFactors.push_back(factors.at(k * oldN + j));
        copyRow(separationMatrices[k], j, W, i);
      }
    }
    newMatrices.push_back(std::move(W));
  }

  std::vector<SourceLocation> newList(newSources);
  sources.swap(newList);
  signalCorrelations.swap(newSignal);
  noiseCorrelations.swap(newNoise);
  factors.swap(newFactors);
  separationMatrices.swap(newMatrices);
}

bool CMSNR::holdsMatricesFor(int M) const {
  return separationMatrices.size() == static_cast<std::size_t>(std::max(numFreq, 0)) &&
         std::all_of(separationMatrices.begin(), separationMatrices.end(),
                     [M](const Matrix& W) { return W.getColumnCount() == M; });
}

// Per bin with the observation x (M × 1) and P = x · xᴴ: a target's signal correlation A, or a
// noise source's noise correlation B, moves towards P; the source's row of W is the filter of (A,
// B).
void CMSNR::adaptSeparationMatrices() {
  const int N = static_cast<int>(sources.size());
  moveCorrelations();
  prepare(spareMatrices, N, numMic);
  const int count = N * std::max(numFreq, 0);
  for (int first = 0; first < count; first += PAIRS_AT_ONCE) {
    computeFilters(first, std::min(first + PAIRS_AT_ONCE, count));
  }

  for (int i = 0; i < count; ++i) {
    Matrix& old = sources[i % N].flag ? signalCorrelations[i] : noiseCorrelations[i];
    old.swap(movedCorrelations[i]);
  }
  separationMatrices.swap(spareMatrices);
}

// Entry k · N + s of movedCorrelations is what source s's signal or noise correlation becomes.
void CMSNR::moveCorrelations() {
  const int N = static_cast<int>(sources.size());
  const std::size_t count = static_cast<std::size_t>(N) * std::max(numFreq, 0);
  movedCorrelations.resize(count);
  factors.resize(count);
  for (int k = 0; k < numFreq; ++k) {
    const Matrix x = inputSpectrum.getColumn(k);
    const Matrix P = x * x.transposed(true);
    for (int s = 0; s < N; ++s) {
      const int i = k * N + s;
      const Matrix& old = sources[s].flag ? signalCorrelations[i] : noiseCorrelations[i];
      average(P, old, movedCorrelations[i]);
    }
  }
}

// result := (1 − α) · P + α · old, both factors as complex numbers without imaginary part.
void CMSNR::average(const Matrix& P, const Matrix& old, Matrix& result) const {
  // A sum of different shapes would be fatal, and numMic comes from outside.
  const int M = P.getRowCount();
  if (M != old.getRowCount() || M != old.getColumnCount()) throw MatrixSizeMismatchException();
  reshape(result, M, M);
  const std::complex<double> fresh(1.0 - alpha, 0.0);
  const std::complex<double> kept(alpha, 0.0);
  for (std::ptrdiff_t i = 0; i < std::ptrdiff_t{M} * M; ++i) {
    result.data()[i] = P.data()[i] * fresh + old.data()[i] * kept;
  }
}

// The filters of pairs first … end − 1 into their rows of spareMatrices. For "GEVD" a filter's
// vector v is the one that maximises vᴴ · A · v / vᴴ · B · v: D = R⁻ᴴ · A · R⁻¹ with B = Rᴴ · R has
// the pair's eigenvalues, and v = R⁻¹ · y for D's eigenvector y.
void CMSNR::computeFilters(int first, int end) {
  if (decompositionAlgorithm == "GEVD") {
    std::vector<Matrix> D;
    for (int i = first; i < end; ++i) {
      const Matrix& inverseR = inverseFactor(i);
      D.push_back(inverseR.transposed(true) * signalOf(i) * inverseR);
    }
    std::vector<Matrix> y;
    principalEigenVectors(D, y);
    for (int i = first; i < end; ++i) setFilter(i, factors[i].inverseR * y[i - first]);
  } else {
    Matrix V;
    Matrix D;
    Matrix unused;
    for (int i = first; i < end; ++i) {
      signalOf(i).generalizedSingularValues(noiseOf(i), V, D, unused);
      setFilter(i, V.getColumn(D.getMaximumValueIndexInColumn(0)));
    }
  }
}

// The two matrices of pair i after this step.
const Matrix& CMSNR::signalOf(int i) const {
  return sources[i % sources.size()].flag ? movedCorrelations[i] : signalCorrelations[i];
}
const Matrix& CMSNR::noiseOf(int i) const {
  return sources[i % sources.size()].flag ? noiseCorrelations[i] : movedCorrelations[i];
}

// R⁻¹ of pair i, computed only when B is another, to the bit, than the one it was computed of.
const Matrix& CMSNR::inverseFactor(int i) {
  Factor& factor = factors[i];
  const Matrix& B = noiseOf(i);
  if (factor.B.getRowCount() == 0 || !sameBits(B, factor.B)) {
    factor = {B, B.inverseCholeskyFactor()};
  }
  return factor.inverseR;
}

// The row of pair i := vᴴ, v divided by its squared norm.
void CMSNR::setFilter(int i, const Matrix& v) {
  const int N = static_cast<int>(sources.size());
  const double n = v.norm().real();
  const Matrix row = (v * std::complex<double>(1.0 / n, 0.0)).transposed(true);
  copyRow(row, 0, spareMatrices[i / N], i % N);
}

}  // namespace BF
