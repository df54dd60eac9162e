#include "bf/CMSNR.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstddef>
#include <utility>

#include "bf/Memo.h"
#include "matrix/EigenBatch.h"
#include "matrix/InverseBatch.h"
#include "matrix/SvdBatch.h"

namespace BF {

namespace {

/// Pairs whose decompositions are done together.
constexpr int PAIRS_AT_ONCE = BinTeam::PART;

/// Of a pair's step and filter with M microphones, roughly.
double nanosecondsOf(int M) { return 5.0 * M * M * M; }

/// Row `row` of W := the uniform filter 1/√M.
void setUniform(Matrix& W, int row) {
  const int M = W.getColumnCount();
  const double weight = 1.0 / std::sqrt(static_cast<double>(M));
  for (int m = 0; m < M; ++m) W.setElementAt(row, m, weight, 0.0);
}

/// result := a · b, whatever shape result had.
void assignProduct(const Matrix& a, const Matrix& b, Matrix& result) {
  reshape(result, a.getRowCount(), b.getColumnCount());
  multiplyInto(a, b, result);
}

}  // namespace

struct CMSNR::Work {
  /// Operands of one of the pairs that are decomposed together, named as in the formulas below.
  struct Pair {
    Matrix inverseB, G, v;
  };

  /// What a member of the team works with.
  struct Member {
    std::array<Pair, PAIRS_AT_ONCE> pairs;
    Batch batch;
    std::vector<EigenPair> eigenPairs;
    Matrix x, P;  // a bin's observation and x · xᴴ
  };

  std::vector<Memo<1>> inverseFactors;  // entry k · N + s: R⁻¹ of the noise correlation Rᴴ · R
  std::vector<Matrix> movedCorrelations;  // entry k · N + s: of this step, then what it replaced
  std::vector<Member> members;
};

CMSNR::CMSNR(int numFreqValue, int samplingRateValue, double soundSpeedValue,
             std::string decomposition, double alphaValue)
    : BF(numFreqValue, samplingRateValue, soundSpeedValue),
      decompositionAlgorithm(std::move(decomposition)),
      alpha(alphaValue),
      work(std::make_unique<Work>()) {
  if (decompositionAlgorithm != "GEVD" && decompositionAlgorithm != "GSVD") {
    throw InvalidStateException();
  }
}

CMSNR::~CMSNR() = default;

void CMSNR::updateSources(const std::vector<SourceLocation>& newSources) {
  findPrevious(newSources);
  const int N = static_cast<int>(newSources.size());
  const int oldN = static_cast<int>(sources.size());
  const int M = numMic;
  if (keepsOrder() && holdsMatricesFor(M)) {
    sources = newSources;
    return;
  }

  std::vector<Matrix> newSignal;
  std::vector<Matrix> newNoise;
  std::vector<Memo<1>> newFactors;
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
        newFactors.push_back(work->inverseFactors.at(k * oldN + j));
        copyRow(separationMatrices[k], j, W, i);
      }
    }
    newMatrices.push_back(std::move(W));
  }

  std::vector<SourceLocation> newList(newSources);
  sources.swap(newList);
  signalCorrelations.swap(newSignal);
  noiseCorrelations.swap(newNoise);
  work->inverseFactors.swap(newFactors);
  separationMatrices.swap(newMatrices);
}

bool CMSNR::holdsMatricesFor(int M) const {
  return separationMatrices.size() == static_cast<std::size_t>(std::max(numFreq, 0)) &&
         std::all_of(separationMatrices.begin(), separationMatrices.end(),
                     [M](const Matrix& W) { return W.getColumnCount() == M; });
}

// Per bin with the observation x (M × 1) and P = x · xᴴ: a target's signal correlation A, or a
// noise source's noise correlation B, moves towards P; the source's row of W is the filter of
// (A, B).
void CMSNR::adaptSeparationMatrices() {
  const int N = static_cast<int>(sources.size());
  const int count = N * std::max(numFreq, 0);
  work->movedCorrelations.resize(count);
  work->inverseFactors.resize(count);
  work->members.resize(team.size());
  prepare(spareMatrices, N, numMic);
  team.share(numFreq, N * nanosecondsOf(numMic), [&](int firstBin, int endBin, int member) {
    Work::Member& its = work->members[member];
    moveCorrelations(firstBin, endBin, its.x, its.P);
    for (int first = N * firstBin; first < N * endBin; first += PAIRS_AT_ONCE) {
      const int end = std::min(first + PAIRS_AT_ONCE, N * endBin);
      if (decompositionAlgorithm == "GEVD") {
        computeEigenFilters(first, end, member);
      } else {
        computeSingularFilters(first, end, member);
      }
    }
  });

  for (int i = 0; i < count; ++i) {
    Matrix& old = sources[i % N].flag ? signalCorrelations[i] : noiseCorrelations[i];
    old.swap(work->movedCorrelations[i]);
  }
  separationMatrices.swap(spareMatrices);
}

// Entry k · N + s of movedCorrelations is what source s's signal or noise correlation becomes.
void CMSNR::moveCorrelations(int firstBin, int endBin, Matrix& x, Matrix& P) {
  const int N = static_cast<int>(sources.size());
  const int M = inputSpectrum.getRowCount();
  reshape(x, M, 1);
  reshape(P, M, M);
  for (int k = firstBin; k < endBin; ++k) {
    copyColumn(inputSpectrum, k, x);
    multiplyAdjointInto(x, x, P);
    for (int s = 0; s < N; ++s) {
      const int i = k * N + s;
      const Matrix& old = sources[s].flag ? signalCorrelations[i] : noiseCorrelations[i];
      average(P, old, work->movedCorrelations[i]);
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

// The filters of pairs first … end − 1 into their rows of spareMatrices: the vector v that
// maximises vᴴ · A · v / vᴴ · B · v. With B = Rᴴ · R (Golub & Van Loan, Matrix Computations):
//   D = R⁻ᴴ · A · R⁻¹ has the pair's eigenvalues,  v = R⁻¹ · y for D's eigenvector y
void CMSNR::computeEigenFilters(int first, int end, int member) {
  updateInverseFactors(first, end, member);
  auto& pairs = work->members[member].pairs;
  std::vector<EigenPair>& eigenPairs = work->members[member].eigenPairs;
  eigenPairs.clear();
  for (int i = first; i < end; ++i) {
    eigenPairs.push_back({&signalOf(i), &work->inverseFactors[i].value, &pairs[i - first].v});
  }
  principalGeneralisedVectors(eigenPairs);
  for (int i = first; i < end; ++i) setFilter(i, pairs[i - first].v);
}

// Computed only where B is another, to the bit, than the one that R⁻¹ was computed of.
void CMSNR::updateInverseFactors(int first, int end, int member) {
  Batch& batch = work->members[member].batch;
  batch.clear();
  for (int i = first; i < end; ++i) {
    Memo<1>& factor = work->inverseFactors[i];
    if (factor.isOf({&noiseOf(i)})) continue;
    factor.forget();
    batch.push_back({&noiseOf(i), &factor.value});
  }
  inverseCholeskyFactors(batch);
  for (int i = first; i < end; ++i) work->inverseFactors[i].remember({&noiseOf(i)});
}

// The same with v the first left singular vector of G = B⁻¹ · A.
void CMSNR::computeSingularFilters(int first, int end, int member) {
  auto& pairs = work->members[member].pairs;
  Batch& batch = work->members[member].batch;
  batch.clear();
  for (int i = first; i < end; ++i) batch.push_back({&noiseOf(i), &pairs[i - first].inverseB});
  inverses(batch);
  batch.clear();
  for (int i = first; i < end; ++i) {
    Work::Pair& pair = pairs[i - first];
    assignProduct(pair.inverseB, signalOf(i), pair.G);
    batch.push_back({&pair.G, &pair.v});
  }
  principalSingularVectors(batch);
  for (int i = first; i < end; ++i) setFilter(i, pairs[i - first].v);
}

// The two matrices of pair i after this step.
const Matrix& CMSNR::signalOf(int i) const {
  return sources[i % sources.size()].flag ? work->movedCorrelations[i] : signalCorrelations[i];
}
const Matrix& CMSNR::noiseOf(int i) const {
  return sources[i % sources.size()].flag ? noiseCorrelations[i] : work->movedCorrelations[i];
}

// The row of pair i := vᴴ, v divided by its squared norm.
void CMSNR::setFilter(int i, const Matrix& v) {
  const int N = static_cast<int>(sources.size());
  const std::complex<double> scale(1.0 / v.norm().real(), 0.0);
  const auto row = spareMatrices[i / N].row(i % N);
  if (row.size() != static_cast<std::size_t>(v.getRowCount())) throw MatrixSizeMismatchException();
  for (std::size_t m = 0; m < row.size(); ++m) row[m] = std::conj(v.data()[m] * scale);
}

}  // namespace BF
