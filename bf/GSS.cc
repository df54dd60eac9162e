#include "bf/GSS.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdio>
#include <utility>

namespace BF {

namespace {

/// ‖P‖², the sum of the squared moduli of all elements. It is summed as a complex number whose
/// imaginary part is zero, so its modulus is the sum itself.
double squaredNorm(const Matrix& P) {
  const std::ptrdiff_t count = std::ptrdiff_t{P.getRowCount()} * P.getColumnCount();
  double sum = 0.0;
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const double modulus = std::abs(P.data()[i]);
    sum += modulus * modulus;
  }
  return sum;
}

/// Re⟨P, Q⟩, the real part of Σ conj(P_ij) · Q_ij.
double realInnerProduct(const Matrix& P, const Matrix& Q) {
  const std::ptrdiff_t count = std::ptrdiff_t{P.getRowCount()} * P.getColumnCount();
  double sum = 0.0;
  for (std::ptrdiff_t i = 0; i < count; ++i) sum += (std::conj(P.data()[i]) * Q.data()[i]).real();
  return sum;
}

}  // namespace

/// The matrices of one bin's step, allocated once for all bins.
struct GSS::Work {
  Work(int N, int M, int outputs)
      : x(M, 1),
        y(outputs, 1),
        f(N, 1),
        WA(N, N),
        E_lc(N, N),
        J_lc(N, M),
        E_ss(N, N),
        J_ss(N, M),
        doubleE_ss(N, N),
        doubleE_ssF(N, 1),
        Q(N, M) {}

  Matrix x, y, f, WA, E_lc, J_lc, E_ss, J_ss, doubleE_ss, doubleE_ssF, Q;
};

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
      if (previous[j] < 0) {
        W.setRow(j, tf[k].getColumn(j).pseudoInverse());
      } else {
        copyRow(separationMatrices[k], previous[j], W, j);
      }
    }
    newMatrices.push_back(std::move(W));
  }

  std::vector<SourceLocation> newList(newSources);
  sources.swap(newList);
  transferFunctions.swap(tf);
  separationMatrices.swap(newMatrices);
}

void GSS::adaptSeparationMatrices() {
  const int N = static_cast<int>(sources.size());
  const int M = inputSpectrum.getRowCount();
  if (numFreq > 0) requireSeparationMatrices();
  Work work(N, M, outputSpectrum.getRowCount());
  std::vector<Matrix> newMatrices;
  newMatrices.reserve(std::max(numFreq, 0));
  for (int k = 0; k < numFreq; ++k) {
    newMatrices.emplace_back(N, M);
    adaptBin(k, work, newMatrices.back());
  }
  separationMatrices.swap(newMatrices);
}

// One bin's step, W − μ_ss · J_ss − μ_lc · J_lc:
//   E_lc  N × N  diagonal part of W · A − I       J_lc  N × M  E_lc · Aᴴ
//   E_ss  N × N  off-diagonal part of f · yᴴ      J_ss  N × M  E_ss · W        f  N × 1  φ(y)
void GSS::adaptBin(int k, Work& work, Matrix& newW) const {
  const Matrix& W = separationMatrices[k];
  const Matrix& A = transferFunctions[k];
  const int N = static_cast<int>(sources.size());
  copyColumn(inputSpectrum, k, work.x);

  multiplyInto(W, A, work.WA);
  for (int n = 0; n < N; ++n) work.E_lc.setElementAt(n, n, work.WA.getElementAt(n, n) - 1.0);
  multiplyAdjointInto(work.E_lc, A, work.J_lc);
  const double mu_lc = lcAdaptive ? constraintStep(work) : mu;

  requireUpdateRule();
  copyColumn(outputSpectrum, k, work.y);
  for (int i = 0; i < N; ++i) {
    work.f.setElementAt(i, 0, nonLinear(work.y.getElementAt(i, 0)));
  }

  multiplyAdjointInto(work.f, work.y, work.E_ss);
  for (int n = 0; n < N; ++n) {
    const std::complex<double> p = work.E_ss.getElementAt(n, n);
    work.E_ss.setElementAt(n, n, p - p);
  }
  multiplyInto(work.E_ss, W, work.J_ss);
  const double step_ss = ssAdaptive ? separationStep(work) : mu_ss;

  const std::ptrdiff_t count = std::ptrdiff_t{N} * W.getColumnCount();
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    newW.data()[i] = (W.data()[i] - work.J_ss.data()[i] * std::complex<double>(step_ss, 0.0)) -
                     work.J_lc.data()[i] * std::complex<double>(mu_lc, 0.0);
  }
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
double GSS::constraintStep(const Work& work) const {
  const double g = squaredNorm(work.J_lc);
  const double e = squaredNorm(work.E_lc);
  if (BF_EPS > g) return mu * (0.5 * e) / (g + BF_EPS);
  return mu * (0.5 * e) / g;
}

// mu_ss · (e / 2) / s with e = ‖E_ss‖² and s = Re⟨J_ss, Q⟩, Q = 2 · E_ss · f · xᴴ (N × M). s keeps
// its sign: a negative one takes the guarded branch.
double GSS::separationStep(Work& work) const {
  const std::ptrdiff_t count = std::ptrdiff_t{work.E_ss.getRowCount()} * work.E_ss.getRowCount();
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    work.doubleE_ss.data()[i] = work.E_ss.data()[i] * std::complex<double>(2.0, 0.0);
  }
  multiplyInto(work.doubleE_ss, work.f, work.doubleE_ssF);
  multiplyAdjointInto(work.doubleE_ssF, work.x, work.Q);
  const double s = realInnerProduct(work.J_ss, work.Q);
  const double e = squaredNorm(work.E_ss);
  if (BF_EPS > s) return mu_ss * (0.5 * e) / (BF_EPS + s);
  return mu_ss * (0.5 * e) / s;
}

}  // namespace BF
