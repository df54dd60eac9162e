#include "bf/CML.h"

#include <cmath>
#include <complex>
#include <cstddef>
#include <utility>

namespace BF {

namespace {

constexpr double PI = 3.141592653589793;
const std::complex<double> ONE(1.0, 0.0);

/// z, or BF_EPS where |z| is below it.
std::complex<double> awayFromZero(const std::complex<double>& z) {
  return std::abs(z) < BF::BF_EPS ? std::complex<double>(BF::BF_EPS, 0.0) : z;
}

/// a at unit Euclidean norm.
Matrix normalised(const Matrix& a) {
  Matrix U;
  Matrix S;
  Matrix V;
  a.singularValueDecomposition(U, S, V);
  const std::complex<double> sigma = awayFromZero(S.getMaximumValue());
  return a * (ONE / sigma);
}

}  // namespace

CML::CML(int numFreqValue, int samplingRateValue, double soundSpeedValue, double regFactorValue)
    : BF(numFreqValue, samplingRateValue, soundSpeedValue), regFactor(regFactorValue) {}

// Per bin k with noise correlation R (M × M) and per source with unit-norm a (M × 1):
//   Q = pinv(R + regFactor · ‖R‖ · I),  w = Q · a / (aᴴ · Q · a),  row of W = wᴴ · e^(jkπ)
void CML::updateSources(const std::vector<SourceLocation>& newSources) {
  const int N = static_cast<int>(newSources.size());
  std::vector<Matrix> tf;
  getTransformFunctions(newSources, tf);

  std::vector<Matrix> newMatrices;
  for (int k = 0; k < numFreq; ++k) {
    if (static_cast<std::size_t>(k) >= noiseCorrelationMatrices.size()) {
      throw IndexOutOfBoundException();
    }
    const int M = tf[k].getRowCount();
    const Matrix R = noiseCorrelationMatrices[k];
    // A sum of different shapes would be fatal, and noise matrices come from outside.
    if (R.getRowCount() != M || R.getColumnCount() != M) throw MatrixSizeMismatchException();
    const std::complex<double> frobenius = R.frobeniusNorm();
    const std::complex<double> c(regFactor * frobenius.real(), regFactor * frobenius.imag());
    const Matrix Q = (R + c * Matrix::I(M)).pseudoInverse();
    const std::complex<double> e = std::exp(std::complex<double>(0.0, k * PI));

    Matrix W(N, M);
    for (int j = 0; j < N; ++j) {
      const Matrix a = normalised(tf[k].getColumn(j));
      const Matrix q = Q * a;
      const std::complex<double> d = awayFromZero((a.transposed(true) * q).scalar());
      const Matrix w = q * (ONE / d);
      for (int m = 0; m < M; ++m) W.setElementAt(j, m, std::conj(w.getElementAt(m, 0)) * e);
    }
    newMatrices.push_back(std::move(W));
  }

  std::vector<SourceLocation> newList(newSources);
  sources.swap(newList);
  transferFunctions.swap(tf);
  separationMatrices.swap(newMatrices);
}

void CML::adaptSeparationMatrices() {}

}  // namespace BF
