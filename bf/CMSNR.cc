#include "bf/CMSNR.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <utility>

namespace BF {

namespace {

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
  if (oldN > 0 && keepsOrder(previous) && holdsMatricesFor(M)) {
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
  spareCorrelations.resize(static_cast<std::size_t>(N) * std::max(numFreq, 0));
  prepare(spareMatrices, N, numMic);
  for (int k = 0; k < numFreq; ++k) {
    const Matrix x = inputSpectrum.getColumn(k);
    const Matrix P = x * x.transposed(true);
    for (int s = 0; s < N; ++s) {
      const int i = k * N + s;
      Matrix& moved = spareCorrelations[i];
      const bool isTarget = sources[s].flag;
      average(P, isTarget ? signalCorrelations[i] : noiseCorrelations[i], moved);
      const Matrix& A = isTarget ? moved : signalCorrelations[i];
      const Matrix& B = isTarget ? noiseCorrelations[i] : moved;
      copyRow(filter(A, B, factors[i]), 0, spareMatrices[k], s);
    }
  }
  for (int i = 0; i < N * numFreq; ++i) {
    Matrix& old = sources[i % N].flag ? signalCorrelations[i] : noiseCorrelations[i];
    old.swap(spareCorrelations[i]);
  }
  separationMatrices.swap(spareMatrices);
}

// result := (1 − α) · P + α · old, both factors as complex numbers without imaginary part.
void CMSNR::average(const Matrix& P, const Matrix& old, Matrix& result) const {
  // A sum of different shapes would be fatal, and numMic comes from outside.
  const int M = P.getRowCount();
  if (M != old.getRowCount() || M != old.getColumnCount()) throw MatrixSizeMismatchException();
  if (result.getRowCount() != M || result.getColumnCount() != M) result = Matrix(M, M);
  const std::complex<double> fresh(1.0 - alpha, 0.0);
  const std::complex<double> kept(alpha, 0.0);
  for (std::ptrdiff_t i = 0; i < std::ptrdiff_t{M} * M; ++i) {
    result.data()[i] = P.data()[i] * fresh + old.data()[i] * kept;
  }
}

// vᴴ (1 × M) for the vector v of the largest generalised value, divided by its squared norm. For
// "GEVD" it is the one that maximises vᴴ · A · v / vᴴ · B · v. factor serves "GEVD" when it is of
// the same B to the bit; else it becomes B's.
Matrix CMSNR::filter(const Matrix& A, const Matrix& B, Factor& factor) const {
  Matrix V;  // the vectors
  Matrix D;  // the values
  if (decompositionAlgorithm == "GEVD") {
    if (factor.B.getRowCount() == 0 || !sameBits(B, factor.B)) {
      factor = {B, B.inverseCholeskyFactor()};
    }
    A.eigenValuesByFactor(factor.inverseR, D, V);
  } else {
    Matrix unused;
    A.generalizedSingularValues(B, V, D, unused);
  }
  const int p = D.getMaximumValueIndexInColumn(0);
  const Matrix v = V.getColumn(p);
  const double n = v.norm().real();
  return (v * std::complex<double>(1.0 / n, 0.0)).transposed(true);
}

}  // namespace BF
