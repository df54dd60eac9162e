#include "bf/GSS.h"

#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdio>
#include <span>
#include <utility>
#include <vector>

#include "bf/GicaLanes.h"
#include "matrix/ProcessorClones.h"

namespace BF {

namespace {

std::ptrdiff_t elementCount(const Matrix& P) {
  return std::ptrdiff_t{P.getRowCount()} * P.getColumnCount();
}

/// a · conj(b), as a sum of one product gives it.
std::complex<double> timesConjugate(const std::complex<double>& a, const std::complex<double>& b) {
  return dotProductWithConjugate(&a, &b, 1);
}

/// Moduli computed together, in the processor's vectors.
constexpr int BATCH = 4;

/// moduli[i] := |z_i| of BATCH numbers, with an error below one unit in the last place and without
/// overflow of the squares. With the absolute parts x ≥ y and h = √(x² + y²) rounded,
///   |z| = h + (x² + y² − h²) / 2h = h + (y² − d · (x + h)) / 2h,  d = h − x,
/// where d is exact.
ZELK_INLINE void moduliOf(const std::complex<double>* z, double* moduli) {
  // Counted, because a loop that leaves early is not turned into vectors; nor is one unrolled.
  int ordinary = 0;
#pragma GCC unroll 1
  for (int i = 0; i < BATCH; ++i) {
    const double absRe = std::fabs(z[i].real());
    const double absIm = std::fabs(z[i].imag());
    const double x = absRe > absIm ? absRe : absIm;
    const double y = absRe > absIm ? absIm : absRe;
    const double square = x * x + y * y;
    const double h = std::sqrt(square);
    const double d = h - x;
    const double modulus = h + (y * y - d * (x + h)) / (2.0 * h);
    const bool zero = (x == 0.0) & (y == 0.0);
    moduli[i] = zero ? 0.0 : modulus;
    ordinary += zero | ((square > 1e-280) & (square < 1e280));
  }
  if (ordinary == BATCH) return;
  for (int i = 0; i < BATCH; ++i) moduli[i] = std::hypot(z[i].real(), z[i].imag());
}

/// ‖P‖², the sum of the squared moduli of all elements. It is summed as a complex number whose
/// imaginary part is zero, so its modulus is the sum itself.
ZELK_PROCESSOR_CLONES double squaredNorm(const Matrix& P) {
  double moduli[BATCH];
  double sum = 0.0;
  const std::complex<double>* p = P.data();
  const std::complex<double>* const end = p + elementCount(P);
  for (; end - p >= BATCH; p += BATCH) {
    moduliOf(p, moduli);
    for (int i = 0; i < BATCH; ++i) sum += moduli[i] * moduli[i];
  }
  if (p == end) return sum;
  std::complex<double> rest[BATCH] = {};
  for (int i = 0; p + i != end; ++i) rest[i] = p[i];
  moduliOf(rest, moduli);
  for (int i = 0; p + i != end; ++i) sum += moduli[i] * moduli[i];
  return sum;
}

/// Re⟨P, Q⟩, the real part of Σ conj(P_ij) · Q_ij.
double realInnerProduct(const Matrix& P, const Matrix& Q) {
  // The plain formula; where complex multiplication gives something else, this gives NaN.
  double sum = 0.0;
  for (std::ptrdiff_t i = 0; i < elementCount(P); ++i) {
    sum += P.data()[i].real() * Q.data()[i].real() + P.data()[i].imag() * Q.data()[i].imag();
  }
  if (sum == sum) return sum;
  sum = 0.0;
  for (std::ptrdiff_t i = 0; i < elementCount(P); ++i) {
    sum += (std::conj(P.data()[i]) * Q.data()[i]).real();
  }
  return sum;
}

/// newW := (W − μ_ss · J_ss) − μ_lc · J_lc, the steps multiplied as complex numbers without
/// imaginary part.
ZELK_PROCESSOR_CLONES void descend(const Matrix& W, double mu_ss, const Matrix& J_ss, double mu_lc,
                                   const Matrix& J_lc, Matrix& newW) {
  const std::ptrdiff_t count = elementCount(W);
  const std::complex<double>* w = W.data();
  const std::complex<double>* s = J_ss.data();
  const std::complex<double>* c = J_lc.data();
  std::complex<double>* __restrict to = newW.data();
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const double re = (w[i].real() - (s[i].real() * mu_ss - s[i].imag() * 0.0)) -
                      (c[i].real() * mu_lc - c[i].imag() * 0.0);
    const double im = (w[i].imag() - (s[i].real() * 0.0 + s[i].imag() * mu_ss)) -
                      (c[i].real() * 0.0 + c[i].imag() * mu_lc);
    to[i] = {re, im};
  }
  // Where the plain formula gives NaN, complex multiplication can give something else.
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    if (to[i].real() == to[i].real() && to[i].imag() == to[i].imag()) continue;
    to[i] =
        (w[i] - s[i] * std::complex<double>(mu_ss, 0.0)) - c[i] * std::complex<double>(mu_lc, 0.0);
  }
}

}  // namespace

/// The matrices of one bin's step.
struct GSS::Bin {
  void setShapes(int N, int M, int inputs, int outputs) {
    reshape(x, inputs, 1);
    reshape(y, outputs, 1);
    reshape(f, N, 1);
    for (Matrix* E : {&E_lc, &E_ss, &doubleE_ss}) reshape(*E, N, N);
    for (Matrix* J : {&J_lc, &J_ss, &Q}) reshape(*J, N, M);
  }

  Matrix x, y, f, E_lc, J_lc, E_ss, J_ss, doubleE_ss, Q;
};

struct GSS::Work {
  Matrix F;                             // φ of all outputs
  bool inLanes = false;                 // whether bins' steps are taken side by side
  std::vector<Bin> bins;                // one for each member of the team
  std::vector<std::vector<int>> alone;  // likewise: bins whose step is taken by itself
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
      ssAdaptive(ssAdaptiveValue),
      work(std::make_unique<Work>()) {}

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

GSS::~GSS() = default;

void GSS::updateSources(const std::vector<SourceLocation>& newSources) {
  findPrevious(newSources);
  gatherTransferFunctions(newSources);
  if (nothingChanges()) {
    sources = newSources;
    return;
  }

  const std::vector<Matrix>& tf = spareTransferFunctions;
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
  transferFunctions.swap(spareTransferFunctions);
  separationMatrices.swap(newMatrices);
}

void GSS::adaptSeparationMatrices() {
  const int N = static_cast<int>(sources.size());
  if (numFreq > 0) requireSeparationMatrices();
  const int M = numFreq > 0 ? separationMatrices[0].getColumnCount() : 0;
  const int inputs = inputSpectrum.getRowCount();
  const int outputs = outputSpectrum.getRowCount();
  work->bins.resize(team.size());
  work->alone.resize(team.size());
  for (Bin& bin : work->bins) bin.setShapes(N, M, inputs, outputs);
  prepare(spareMatrices, N, M);
  work->inLanes = fitTheLanes(N, M);
  if (work->inLanes) reshape(work->F, outputs, outputSpectrum.getColumnCount());
  team.share(numFreq, 2.0 * N * (M + 20),
             [this](int first, int end, int member) { adaptBins(first, end, member); });
  separationMatrices.swap(spareMatrices);
}

// Whether there is nothing that the step of a bin throws for.
bool GSS::fitTheLanes(int N, int M) const {
  const auto fits = [](const Matrix& P, int rows, int columns) {
    return P.getRowCount() == rows && P.getColumnCount() == columns;
  };
  const std::size_t K = spareMatrices.size();
  if (getBfAlgorithmType() != BF_ALGORITHM_GICA || separationMatrices.size() != K ||
      transferFunctions.size() != K || inputSpectrum.getRowCount() != M ||
      outputSpectrum.getRowCount() != N || inputSpectrum.getColumnCount() < numFreq ||
      outputSpectrum.getColumnCount() < numFreq) {
    return false;
  }
  for (std::size_t k = 0; k < K; ++k) {
    if (!fits(separationMatrices[k], N, M) || !fits(transferFunctions[k], M, N)) return false;
  }
  return true;
}

void GSS::adaptBins(int first, int end, int member) {
  std::vector<int>& alone = work->alone[member];
  alone.clear();
  if (work->inLanes) {
    const Matrix& Y = outputSpectrum;
    Matrix& F = work->F;
    for (int n = 0; n < Y.getRowCount(); ++n) {
      const std::ptrdiff_t row = std::ptrdiff_t{n} * Y.getColumnCount();
      for (int k = first; k < end; ++k) F.data()[row + k] = nonLinear(Y.data()[row + k]);
    }
    adaptInLanes({separationMatrices, transferFunctions, inputSpectrum, Y, F, mu, mu_ss, lcAdaptive,
                  ssAdaptive},
                 first, end, spareMatrices, alone);
  } else {
    for (int k = first; k < end; ++k) alone.push_back(k);
  }
  for (const int k : alone) adaptBin(k, work->bins[member], spareMatrices[k]);
}

// One bin's step, W − μ_ss · J_ss − μ_lc · J_lc.
void GSS::adaptBin(int k, Bin& bin, Matrix& newW) const {
  const Matrix& W = separationMatrices[k];
  const Matrix& A = transferFunctions[k];
  if (A.getRowCount() != W.getColumnCount() || A.getColumnCount() != W.getRowCount() ||
      newW.getRowCount() != W.getRowCount() || newW.getColumnCount() != W.getColumnCount()) {
    throw MatrixSizeMismatchException();
  }
  constraintGradient(W, A, bin);
  copyColumn(inputSpectrum, k, bin.x);
  copyColumn(outputSpectrum, k, bin.y);
  const double mu_lc = lcAdaptive ? constraintStep(bin) : mu;

  requireUpdateRule();
  separationGradient(W, bin);
  const double step_ss = ssAdaptive ? separationStep(bin) : mu_ss;

  descend(W, step_ss, bin.J_ss, mu_lc, bin.J_lc, newW);
}

// E_lc (N × N) is the diagonal part of W · A − I, J_lc (N × M) = E_lc · Aᴴ.
void GSS::constraintGradient(const Matrix& W, const Matrix& A, Bin& bin) {
  const int N = W.getRowCount();
  const int M = W.getColumnCount();
  bool finite = true;
  for (int n = 0; n < N; ++n) {
    const std::complex<double> e = dotProduct(W.row(n).data(), 1, A.data() + n, N, M) - 1.0;
    bin.E_lc.setElementAt(n, n, e);
    finite = finite && std::isfinite(e.real()) && std::isfinite(e.imag());
  }
  // Only where A has an element that is not finite do the zeros of E_lc add something to the sums.
  if (!finite) {
    multiplyAdjointInto(bin.E_lc, A, bin.J_lc);
    return;
  }
  for (int n = 0; n < N; ++n) {
    const std::complex<double> e = bin.E_lc.getElementAt(n, n);
    const std::span<std::complex<double>> J = bin.J_lc.row(n);
    for (int m = 0; m < M; ++m) J[m] = timesConjugate(e, A.row(m)[n]);
  }
}

// E_ss (N × N) is the off-diagonal part of f · yᴴ with f (N × 1) = φ(y), J_ss (N × M) = E_ss · W.
void GSS::separationGradient(const Matrix& W, Bin& bin) const {
  const int N = W.getRowCount();
  for (int i = 0; i < N; ++i) {
    bin.f.setElementAt(i, 0, nonLinear(bin.y.getElementAt(i, 0)));
  }
  if (bin.y.getRowCount() != N) throw MatrixSizeMismatchException();
  for (int i = 0; i < N; ++i) {
    const std::span<std::complex<double>> E = bin.E_ss.row(i);
    for (int j = 0; j < N; ++j) {
      const std::complex<double> p = timesConjugate(bin.f.data()[i], bin.y.data()[j]);
      E[j] = i == j ? p - p : p;  // NaN where p is not finite
    }
  }
  multiplyInto(bin.E_ss, W, bin.J_ss);
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
double GSS::constraintStep(const Bin& bin) const {
  const double g = squaredNorm(bin.J_lc);
  const double e = squaredNorm(bin.E_lc);
  if (BF_EPS > g) return mu * (0.5 * e) / (g + BF_EPS);
  return mu * (0.5 * e) / g;
}

// mu_ss · (e / 2) / s with e = ‖E_ss‖² and s = Re⟨J_ss, Q⟩, Q = 2 · E_ss · f · xᴴ (N × M). s keeps
// its sign: a negative one takes the guarded branch.
double GSS::separationStep(Bin& bin) const {
  const int N = bin.Q.getRowCount();
  const int M = bin.Q.getColumnCount();
  if (bin.x.getRowCount() != M) throw MatrixSizeMismatchException();
  for (std::ptrdiff_t i = 0; i < elementCount(bin.E_ss); ++i) {
    bin.doubleE_ss.data()[i] = bin.E_ss.data()[i] * std::complex<double>(2.0, 0.0);
  }
  for (int i = 0; i < N; ++i) {
    const std::complex<double> q = dotProduct(bin.doubleE_ss.row(i).data(), 1, bin.f.data(), 1, N);
    const std::span<std::complex<double>> Q = bin.Q.row(i);
    for (int m = 0; m < M; ++m) Q[m] = timesConjugate(q, bin.x.data()[m]);
  }
  const double s = realInnerProduct(bin.J_ss, bin.Q);
  const double e = squaredNorm(bin.E_ss);
  if (BF_EPS > s) return mu_ss * (0.5 * e) / (BF_EPS + s);
  return mu_ss * (0.5 * e) / s;
}

}  // namespace BF
