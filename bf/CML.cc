#include "bf/CML.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstddef>

#include "bf/Memo.h"
#include "matrix/SvdBatch.h"

namespace BF {

namespace {

/// Bins that are computed together.
constexpr int BINS_AT_ONCE = BinTeam::PART;

/// Of a bin's filters with M microphones, roughly.
double nanosecondsOf(int M) { return 3.0 * M * M * M; }

constexpr double PI = 3.141592653589793;
const std::complex<double> ONE(1.0, 0.0);

/// z, or BF_EPS where |z| is below it.
std::complex<double> awayFromZero(const std::complex<double>& z) {
  return std::abs(z) < BF::BF_EPS ? std::complex<double>(BF::BF_EPS, 0.0) : z;
}

/// Every column of A at unit Euclidean norm.
void normaliseColumns(const Matrix& A, Matrix& result) {
  reshape(result, A.getRowCount(), A.getColumnCount());
  for (int j = 0; j < A.getColumnCount(); ++j) {
    double squared = 0.0;
    for (int m = 0; m < A.getRowCount(); ++m) squared += std::norm(A.getElementAt(m, j));
    const std::complex<double> reciprocal = ONE / awayFromZero(std::sqrt(squared));
    for (int m = 0; m < A.getRowCount(); ++m) {
      result.setElementAt(m, j, A.getElementAt(m, j) * reciprocal);
    }
  }
}

/// result := R + regFactor · ‖R‖ · I.
void loadDiagonal(const Matrix& R, double regFactor, Matrix& result) {
  const int M = R.getRowCount();
  const std::complex<double> frobenius = R.frobeniusNorm();
  const std::complex<double> c(regFactor * frobenius.real(), regFactor * frobenius.imag());
  reshape(result, M, M);
  for (int i = 0; i < M; ++i) {
    for (int j = 0; j < M; ++j) {
      const std::complex<double> I = i == j ? 1.0 : 0.0;
      result.setElementAt(i, j, R.getElementAt(i, j) + I * c);
    }
  }
}

}  // namespace

struct CML::Work {
  // Entry k: bin k's separation matrix, which follows from its transfer functions, its noise
  // correlation and regFactor; and its steering vectors (M × N), which follow from the first.
  std::vector<Memo<2>> known;
  std::vector<Memo<1>> steering;

  std::vector<int> stale;  // bins to be computed

  /// What a member of the team works with.
  struct Member {
    std::array<Matrix, BINS_AT_ONCE> loaded, Q;
    Batch batch;
    Matrix a, q;
  };
  std::vector<Member> members;
};

CML::CML(int numFreqValue, int samplingRateValue, double soundSpeedValue, double regFactorValue)
    : BF(numFreqValue, samplingRateValue, soundSpeedValue),
      regFactor(regFactorValue),
      work(std::make_unique<Work>()) {}

CML::~CML() = default;

void CML::updateSources(const std::vector<SourceLocation>& newSources) {
  gatherTransferFunctions(newSources);
  const std::vector<Matrix>& A = spareTransferFunctions;
  work->known.resize(A.size());
  work->steering.resize(A.size());
  work->stale.clear();
  for (std::size_t k = 0; k < A.size(); ++k) {
    if (k >= noiseCorrelationMatrices.size()) throw IndexOutOfBoundException();
    const Matrix& R = noiseCorrelationMatrices[k];
    // A sum of different shapes would be fatal, and noise matrices come from outside.
    const int M = A[k].getRowCount();
    if (R.getRowCount() != M || R.getColumnCount() != M) throw MatrixSizeMismatchException();
    if (work->known[k].isOf({&A[k], &R}, regFactor)) continue;
    work->stale.push_back(static_cast<int>(k));
  }
  work->members.resize(team.size());
  const int count = static_cast<int>(work->stale.size());
  team.share(count, nanosecondsOf(numMic), [this](int begin, int end, int member) {
    for (int first = begin; first < end; first += BINS_AT_ONCE) {
      compute(first, std::min(first + BINS_AT_ONCE, end), member);
    }
  });

  spareMatrices.resize(A.size());
  for (std::size_t k = 0; k < A.size(); ++k) spareMatrices[k] = work->known[k].value;
  sources = newSources;
  transferFunctions.swap(spareTransferFunctions);
  separationMatrices.swap(spareMatrices);
}

// Stale bins first … end − 1. With transfer functions A (M × N) and noise correlation R (M × M):
//   Q = pinv(R + regFactor · ‖R‖ · I),  w = Q · a / (aᴴ · Q · a),  row of W = wᴴ · e^(jkπ)
void CML::compute(int first, int end, int member) {
  Work::Member& its = work->members[member];
  const int* stale = work->stale.data() + first;
  its.batch.clear();
  for (int i = 0; i < end - first; ++i) {
    loadDiagonal(noiseCorrelationMatrices[stale[i]], regFactor, its.loaded[i]);
    its.batch.push_back({&its.loaded[i], &its.Q[i]});
  }
  pseudoInverses(its.batch);
  for (int i = 0; i < end - first; ++i) computeFilters(stale[i], its.Q[i], its.a, its.q);
}

void CML::computeFilters(int k, const Matrix& Q, Matrix& a, Matrix& q) {
  Memo<2>& known = work->known[k];
  Memo<1>& steering = work->steering[k];
  const Matrix& A = spareTransferFunctions[k];
  const int M = A.getRowCount();
  const int N = A.getColumnCount();
  if (!steering.isOf({&A})) {
    steering.forget();
    normaliseColumns(A, steering.value);
    steering.remember({&A});
  }
  known.forget();
  Matrix& W = known.value;
  reshape(W, N, M);
  reshape(a, M, 1);
  reshape(q, M, 1);
  const std::complex<double> e = std::exp(std::complex<double>(0.0, k * PI));
  for (int j = 0; j < N; ++j) {
    copyColumn(steering.value, j, a);
    multiplyInto(Q, a, q);
    const std::complex<double> d = awayFromZero(dotProductWithConjugate(q.data(), a.data(), M));
    const auto row = W.row(j);
    for (int m = 0; m < M; ++m) row[m] = std::conj(q.data()[m] * (ONE / d)) * e;
  }
  known.remember({&A, &noiseCorrelationMatrices[k]}, regFactor);
}

void CML::adaptSeparationMatrices() {}

}  // namespace BF
