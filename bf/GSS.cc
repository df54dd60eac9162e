#include "bf/GSS.h"

#include <cmath>
#include <complex>
#include <cstdio>
#include <utility>

namespace BF {

namespace {

/// ‖P‖², the sum of the squared moduli of all elements.
double squaredNorm(const Matrix& P) { return std::abs(P.elementwiseNorm().getElementSum()); }

std::complex<double> realScalar(double value) { return {value, 0.0}; }

}  // namespace

GSS::GSS(int numFreqValue, int samplingRateValue, double soundSpeedValue, bool lcAdaptiveValue,
         double muValue, bool ssAdaptiveValue, double muSsValue, double scaleValue,
         NlFuncType nlFuncTypeValue)
    : BF(numFreqValue, samplingRateValue, soundSpeedValue),
      nlFuncType(nlFuncTypeValue),
      mu(muValue),
      mu_ss(muSsValue),
      scale(scaleValue),
      lcAdaptive(lcAdaptiveValue),
      ssAdaptive(ssAdaptiveValue) {}

GHDSS::GHDSS(int numFreqValue, int samplingRateValue, double soundSpeedValue, bool lcAdaptiveValue,
             double muValue, bool ssAdaptiveValue, double muSsValue, double scaleValue,
             NlFuncType nlFuncTypeValue)
    : GSS(numFreqValue, samplingRateValue, soundSpeedValue, lcAdaptiveValue, muValue,
          ssAdaptiveValue, muSsValue, scaleValue, nlFuncTypeValue) {
  std::printf(
      "GHDSS::GHDSS(numFreq=%d, samplingRate=%d, soundSpeed=%f, mu=%f, mu_ss=%f, scale=%f, "
      "NlFuncType=%d\n",
      numFreq, samplingRate, soundSpeed, mu, mu_ss, scale, static_cast<int>(nlFuncType));
}

void GSS::updateSources(const std::vector<SourceLocation>& newSources) {
  const std::vector<int> previous = previousIndices(newSources);
  std::vector<Matrix> tf;
  getTransformFunctions(newSources, tf);

  const int N = static_cast<int>(newSources.size());
  std::vector<Matrix> newMatrices;
  for (int k = 0; k < numFreq; ++k) {
    Matrix W(N, tf[k].getRowCount());
    for (int j = 0; j < N; ++j) {
      W.setRow(j, previous[j] < 0 ? tf[k].getColumn(j).pseudoInverse()
                                  : separationMatrices[k].getRow(previous[j]));
    }
    newMatrices.push_back(std::move(W));
  }

  std::vector<SourceLocation> newList(newSources);
  sources.swap(newList);
  transferFunctions.swap(tf);
  separationMatrices.swap(newMatrices);
}

void GSS::adaptSeparationMatrices() {
  std::vector<Matrix> newMatrices;
  for (int k = 0; k < numFreq; ++k) {
    newMatrices.push_back(adapted(separationMatrices[k], transferFunctions[k],
                                  inputSpectrum.getColumn(k), outputSpectrum.getColumn(k)));
  }
  separationMatrices.swap(newMatrices);
}

// One bin's step, W − μ_ss · J_ss − μ_lc · J_lc:
//   E_lc  N × N  diagonal part of W · A − I       J_lc  N × M  E_lc · Aᴴ
//   E_ss  N × N  off-diagonal part of f · yᴴ      J_ss  N × M  E_ss · W        f  N × 1  φ(y)
Matrix GSS::adapted(const Matrix& W, const Matrix& A, const Matrix& x, const Matrix& y) const {
  const int N = static_cast<int>(sources.size());
  const Matrix E_lc = (W * A - Matrix::I(N)).diagonalElements().diagonalMatrix();
  const Matrix J_lc = E_lc * A.transposed(true);
  const double mu_lc = lcAdaptive ? constraintStep(E_lc, J_lc) : mu;

  requireUpdateRule();
  Matrix f(N, 1);
  for (int i = 0; i < N; ++i) f.setElementAt(i, 0, nonLinear(y.getElementAt(i, 0)));

  requireUpdateRule();
  const Matrix P = f * y.transposed(true);
  const Matrix E_ss = P - P.diagonalElements().diagonalMatrix();
  const Matrix J_ss = E_ss * W;

  double step_ss = mu_ss;
  if (ssAdaptive) {
    requireUpdateRule();
    step_ss = separationStep(E_ss, J_ss, f, x);
  }
  return (W - J_ss * realScalar(step_ss)) - J_lc * realScalar(mu_lc);
}

void GSS::requireUpdateRule() const {
  if (getBfAlgorithmType() != BF_ALGORITHM_GICA) throw InvalidStateException();
}

std::complex<double> GSS::nonLinear(const std::complex<double>& y) const {
  if (nlFuncType == NL_FUNC_TANH) {
    const double r = std::abs(y);
    const double t = std::tanh(r * scale);
    if (BF_EPS > r) return 0.0;
    if (t > 1.0) return y / r;
    return t * y / r;
  }
  if (nlFuncType == NL_FUNC_CUBIC) return (y * y) * std::conj(y);
  return 0.0;
}

// mu · (e / 2) / g with e = ‖E_lc‖² and g = ‖J_lc‖².
double GSS::constraintStep(const Matrix& E_lc, const Matrix& J_lc) const {
  const double g = squaredNorm(J_lc);
  const double e = squaredNorm(E_lc);
  if (BF_EPS > g) return mu * (0.5 * e) / (g + BF_EPS);
  return mu * (0.5 * e) / g;
}

// mu_ss · (e / 2) / s with e = ‖E_ss‖² and s = Re⟨J_ss, Q⟩, Q = 2 · E_ss · f · xᴴ (N × M). s keeps
// its sign: a negative one takes the guarded branch.
double GSS::separationStep(const Matrix& E_ss, const Matrix& J_ss, const Matrix& f,
                           const Matrix& x) const {
  const Matrix Q = realScalar(2.0) * E_ss * f * x.transposed(true);
  const double s = J_ss.elementwiseFMultiplied(Q).getElementSum().real();
  const double e = squaredNorm(E_ss);
  if (BF_EPS > s) return mu_ss * (0.5 * e) / (BF_EPS + s);
  return mu_ss * (0.5 * e) / s;
}

}  // namespace BF
