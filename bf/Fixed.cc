#include "bf/Fixed.h"

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

/// Of a bin's separation matrix, roughly.
double nanosecondsOf(int type, int M, int N) {
  if (type == BF_ALGORITHM_ILSE) return 5.0 * M * M * N;
  return type == BF_ALGORITHM_NULL ? 5.0 * M * N * N : 10.0 * M * N;
}

/// a := column n of A, or its conjugate.
void takeColumn(const Matrix& A, int n, bool conjugate, Matrix& a) {
  reshape(a, A.getRowCount(), 1);
  for (int m = 0; m < A.getRowCount(); ++m) {
    const std::complex<double>& z = A.getElementAt(m, n);
    a.setElementAt(m, 0, conjugate ? std::conj(z) : z);
  }
}

/// BT := the columns of A except column n, in their order, as rows: (N − 1) × M.
void takeOtherColumns(const Matrix& A, int n, Matrix& BT) {
  reshape(BT, A.getColumnCount() - 1, A.getRowCount());
  for (int j = 0; j < BT.getRowCount(); ++j) {
    for (int m = 0; m < BT.getColumnCount(); ++m) {
      BT.setElementAt(j, m, A.getElementAt(m, j < n ? j : j + 1));
    }
  }
}

/// result := a · b, whatever shape result had.
void assignProduct(const Matrix& a, const Matrix& b, Matrix& result) {
  reshape(result, a.getRowCount(), b.getColumnCount());
  multiplyInto(a, b, result);
}

/// Delay-and-sum. Row n of W has the entries conj(a_i) / (|a_i| · Σ_j |a_j|), a = column n of A.
void delayAndSum(const Matrix& A, Matrix& W) {
  for (int n = 0; n < A.getColumnCount(); ++n) {
    std::complex<double> S = 0.0;
    for (int j = 0; j < A.getRowCount(); ++j) S += std::abs(A.getElementAt(j, n));
    for (int i = 0; i < A.getRowCount(); ++i) {
      const std::complex<double>& a = A.getElementAt(i, n);
      const std::complex<double> r = std::abs(a);
      const std::complex<double> t = r * S;
      const bool small = BF::BF_EPS > std::abs(t);
      W.setElementAt(n, i, std::conj(small ? a / (t + BF::BF_EPS) : (a / r) / S));
    }
  }
}

}  // namespace

/// The bins that are computed together, with the same formula.
class Fixed::Group {
 public:
  void clear() { count = 0; }

  /// W, which gets its shape here, is to be the separation matrix of A.
  void add(const Matrix& A, Matrix& W) {
    bins[count].A = &A;
    bins[count++].W = &W;
    reshape(W, A.getColumnCount(), A.getRowCount());
  }

  /// By the formula of an algorithm number; zeros for one that is not of this family.
  void compute(int type);

 private:
  /// One of them. The operands of a row of W are named as in the formulas below.
  struct Bin {
    const Matrix* A;
    Matrix* W;
    Matrix a, conjA, aT, h, q, Vnull, BT, G, pinvG, pinvGBT, z, change;
  };

  /// Result := operation of operand, for these members of all bins.
  void all(void (*operation)(const Batch&), Matrix Bin::*operand, Matrix Bin::*result) {
    batch.clear();
    for (int i = 0; i < count; ++i) batch.push_back({&(bins[i].*operand), &(bins[i].*result)});
    operation(batch);
  }

  void weightedDelayAndSum();
  void null();
  void ilse();

  std::array<Bin, BINS_AT_ONCE> bins;
  int count = 0;
  Batch batch;
};

struct Fixed::Work {
  /// A bin to be computed by the formula of an algorithm's number.
  struct Stale {
    int k, type;
  };

  // Entry k: bin k's separation matrix, which follows from its transfer functions and the
  // algorithm's number.
  std::vector<Memo<1>> known;
  std::vector<Stale> stale;
  std::vector<Group> groups;  // one for each member of the team
};

void Fixed::Group::compute(int type) {
  if (bins[0].A->getRowCount() == 0) return;
  switch (type) {
    case BF_ALGORITHM_DS:
      for (int i = 0; i < count; ++i) delayAndSum(*bins[i].A, *bins[i].W);
      break;
    case BF_ALGORITHM_WDS:
      weightedDelayAndSum();
      break;
    case BF_ALGORITHM_NULL:
      null();
      break;
    case BF_ALGORITHM_ILSE:
      ilse();
      break;
    default:
      for (int i = 0; i < count; ++i)
        *bins[i].W = Matrix::O(bins[i].W->getRowCount(), bins[i].W->getColumnCount());
  }
}

/// Row n of W = pinv(a_n).
void Fixed::Group::weightedDelayAndSum() {
  for (int n = 0; n < bins[0].A->getColumnCount(); ++n) {
    for (int i = 0; i < count; ++i) takeColumn(*bins[i].A, n, false, bins[i].a);
    all(pseudoInverses, &Bin::a, &Bin::q);
    for (int i = 0; i < count; ++i) copyRow(bins[i].q, 0, *bins[i].W, n);
  }
}

/// W = pinv(A).
void Fixed::Group::null() {
  batch.clear();
  for (int i = 0; i < count; ++i) batch.push_back({bins[i].A, bins[i].W});
  pseudoInverses(batch);
}

/// Among all w with aᵀ · w = 1 the one whose responses Bᵀ · w to the other sources are the smallest
/// in the least-squares sense:
///   h      M × 1              pinv(aᵀ), the minimum-norm solution of aᵀ · h = 1
///   V_null M × (M − 1)        orthonormal basis of the vectors v with aᵀ · v = 0
///   B      M × (N − 1)        the other sources' columns
///   G      (N − 1) × (M − 1)  Bᵀ · V_null
///   z      (M − 1) × 1        −pinv(G) · Bᵀ · h
///   w      M × 1              h + V_null · z; row n of W = wᵀ
void Fixed::Group::ilse() {
  const int N = bins[0].A->getColumnCount();
  for (int n = 0; n < N; ++n) {
    for (int i = 0; i < count; ++i) {
      Bin& bin = bins[i];
      takeColumn(*bin.A, n, true, bin.conjA);
      reshape(bin.aT, 1, bin.A->getRowCount());
      for (int m = 0; m < bin.A->getRowCount(); ++m) bin.aT.row(0)[m] = bin.A->getElementAt(m, n);
    }
    all(pseudoInverses, &Bin::aT, &Bin::h);
    if (N > 1) {
      all(orthogonalComplements, &Bin::conjA, &Bin::Vnull);
      for (int i = 0; i < count; ++i) {
        takeOtherColumns(*bins[i].A, n, bins[i].BT);
        assignProduct(bins[i].BT, bins[i].Vnull, bins[i].G);
      }
      all(pseudoInverses, &Bin::G, &Bin::pinvG);
    }
    for (int i = 0; i < count; ++i) {
      Bin& bin = bins[i];
      const auto w = bin.W->row(n);
      std::copy_n(bin.h.data(), w.size(), w.begin());
      if (N == 1) continue;
      for (int j = 0; j < bin.pinvG.getRowCount(); ++j) {
        for (std::complex<double>& x : bin.pinvG.row(j)) x *= std::complex<double>(-1.0, 0.0);
      }
      assignProduct(bin.pinvG, bin.BT, bin.pinvGBT);
      assignProduct(bin.pinvGBT, bin.h, bin.z);
      assignProduct(bin.Vnull, bin.z, bin.change);
      for (std::size_t m = 0; m < w.size(); ++m) w[m] += bin.change.data()[m];
    }
  }
}

Fixed::Fixed(int numFreqValue, int samplingRateValue, double soundSpeedValue)
    : BF(numFreqValue, samplingRateValue, soundSpeedValue), work(std::make_unique<Work>()) {}

Fixed::~Fixed() = default;

void Fixed::updateSources(const std::vector<SourceLocation>& newSources) {
  gatherTransferFunctions(newSources);
  const std::vector<Matrix>& A = spareTransferFunctions;
  std::vector<Memo<1>>& known = work->known;
  known.resize(A.size());
  work->stale.clear();
  for (int k = 0; k < static_cast<int>(A.size()); ++k) {
    const int type = getBfAlgorithmType();
    if (!known[k].isOf({&A[k]}, type)) work->stale.push_back({k, type});
  }
  work->groups.resize(team.size());
  const int count = static_cast<int>(work->stale.size());
  const int N = static_cast<int>(newSources.size());
  const double nanoseconds = count > 0 ? nanosecondsOf(work->stale[0].type, numMic, N) : 0.0;
  team.share(count, nanoseconds,
             [this](int begin, int end, int member) { compute(begin, end, member); });

  spareMatrices.resize(A.size());
  for (std::size_t k = 0; k < A.size(); ++k) spareMatrices[k] = known[k].value;
  sources = newSources;
  transferFunctions.swap(spareTransferFunctions);
  separationMatrices.swap(spareMatrices);
}

// The separation matrices of stale bins first … end − 1, those together that have the same formula.
void Fixed::compute(int first, int end, int member) {
  Group& group = work->groups[member];
  const Work::Stale* stale = work->stale.data();
  while (first < end) {
    const int type = stale[first].type;
    int next = first;
    group.clear();
    for (; next < end && next - first < BINS_AT_ONCE && stale[next].type == type; ++next) {
      Memo<1>& known = work->known[stale[next].k];
      known.forget();
      group.add(spareTransferFunctions[stale[next].k], known.value);
    }
    group.compute(type);
    for (; first < next; ++first) {
      const int k = stale[first].k;
      work->known[k].remember({&spareTransferFunctions[k]}, type);
    }
  }
}

void Fixed::adaptSeparationMatrices() {}

}  // namespace BF
