#include "bf/CML.h"

#include <cmath>
#include <complex>
#include <cstddef>

namespace BF {

namespace {

constexpr double PI = 3.141592653589793;
const std::complex<double> ONE(1.0, 0.0);

/// z, or BF_EPS where |z| is below it.
std::complex<double> awayFromZero(const std::complex<double>& z) {
  return std::abs(z) < BF::BF_EPS ? std::complex<double>(BF::BF_EPS, 0.0) : z;
}

/// Every column of A at unit Euclidean norm.
Matrix normalisedColumns(const Matrix& A) {
  Matrix result(A.getRowCount(), A.getColumnCount());
  Matrix U;
  Matrix S;
  Matrix V;
  for (int j = 0; j < A.getColumnCount(); ++j) {
    const Matrix a = A.getColumn(j);
    a.singularValueDecomposition(U, S, V);
    const std::complex<double> sigma = awayFromZero(S.getMaximumValue());
    result.setColumn(j, a * (ONE / sigma));
  }
  return result;
}

/// pinv(R + regFactor · ‖R‖ · I).
Matrix regularisedInverse(const Matrix& R, double regFactor) {
  const std::complex<double> frobenius = R.frobeniusNorm();
  const std::complex<double> c(regFactor * frobenius.real(), regFactor * frobenius.imag());
  return (R + c * Matrix::I(R.getRowCount())).pseudoInverse();
}

/// Row j is wᴴ · e^(jkπ) with w = Q · a / (aᴴ · Q · a), a being column j of the steering vectors.
Matrix filters(const Matrix& Q, const Matrix& steering, int k) {
  const int M = steering.getRowCount();
  const int N = steering.getColumnCount();
  const std::complex<double> e = std::exp(std::complex<double>(0.0, k * PI));
  Matrix W(N, M);
  for (int j = 0; j < N; ++j) {
    const Matrix a = steering.getColumn(j);
    const Matrix q = Q * a;
    const std::complex<double> d = awayFromZero((a.transposed(true) * q).scalar());
    const Matrix w = q * (ONE / d);
    for (int m = 0; m < M; ++m) W.setElementAt(j, m, std::conj(w.getElementAt(m, 0)) * e);
  }
  return W;
}

}  // namespace

CML::CML(int numFreqValue, int samplingRateValue, double soundSpeedValue, double regFactorValue)
    : BF(numFreqValue, samplingRateValue, soundSpeedValue), regFactor(regFactorValue) {}

void CML::updateSources(const std::vector<SourceLocation>& newSources) {
  std::vector<Matrix> tf;
  getTransformFunctions(newSources, tf);

  std::vector<Bin> bins;
  std::vector<Matrix> newMatrices;
  bins.reserve(tf.size());
  newMatrices.reserve(tf.size());
  for (int k = 0; k < numFreq; ++k) {
    if (static_cast<std::size_t>(k) >= noiseCorrelationMatrices.size()) {
      throw IndexOutOfBoundException();
    }
    bins.push_back(computed(k, tf[k], noiseCorrelationMatrices[k]));
    newMatrices.push_back(bins.back().separation);
  }

  std::vector<SourceLocation> newList(newSources);
  known.swap(bins);
  sources.swap(newList);
  transferFunctions.swap(tf);
  separationMatrices.swap(newMatrices);
}

// Bin k with transfer functions A (M × N) and noise correlation R (M × M):
//   Q = pinv(R + regFactor · ‖R‖ · I),  w = Q · a / (aᴴ · Q · a),  row of W = wᴴ · e^(jkπ)
CML::Bin CML::computed(int k, const Matrix& A, const Matrix& R) const {
  const int M = A.getRowCount();
  // A sum of different shapes would be fatal, and noise matrices come from outside.
  if (R.getRowCount() != M || R.getColumnCount() != M) throw MatrixSizeMismatchException();
  const Bin* last = static_cast<std::size_t>(k) < known.size() ? &known[k] : nullptr;
  const bool sameA = last && sameBits(A, last->transferFunctions);
  if (sameA && sameBits(R, last->noise) && regFactor == last->regFactor) return *last;

  Bin bin;
  bin.transferFunctions = A;
  bin.noise = R;
  bin.regFactor = regFactor;
  bin.steering = sameA ? last->steering : normalisedColumns(A);
  bin.separation = filters(regularisedInverse(R, regFactor), bin.steering, k);
  return bin;
}

void CML::adaptSeparationMatrices() {}

}  // namespace BF
