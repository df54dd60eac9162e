// Compiled once for each kind of processor; the best one is chosen at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "matrix/EigenBatch.cc"
#include "matrix/HighwayTargets.h"
// This one comes first.
#include <hwy/foreach_target.h>

#include "matrix/EigenBatch.h"
#include "matrix/JacobiRotation-inl.h"
#include "matrix/Lanes-inl.h"
#include "matrix/PerThread.h"
#include "matrix/evd.h"

#ifndef ZELK_MATRIX_EIGEN_BATCH_ONCE
#define ZELK_MATRIX_EIGEN_BATCH_ONCE

#include <algorithm>
#include <complex>
#include <cstddef>
#include <mutex>
#include <optional>
#include <vector>

namespace BF {

// eigenValues keeps work vectors that all threads share.
inline std::mutex oneAtATime;

inline Matrix principalVectorOf(const Matrix& matrix) {
  const std::lock_guard<std::mutex> lock(oneAtATime);
  Matrix values;
  Matrix V;
  matrix.eigenValues(values, V);
  return V.getColumn(values.getMaximumValueIndexInColumn(0));
}

inline Matrix generalisedVectorOf(const EigenPair& pair) {
  const Matrix D = pair.inverseR->transposed(true) * *pair.A * *pair.inverseR;
  return *pair.inverseR * principalVectorOf(D);
}

}  // namespace BF

#endif

HWY_BEFORE_NAMESPACE();
namespace BF::HWY_NAMESPACE {
namespace {

// Jacobi's method of evd<double> for several Hermitian matrices of one size at once, one in each
// lane: operations, their order and so every bit are those of evd<double>, but of the eigenvectors
// only the principal one is formed.

/// An element of the diagonal: now, at the start of the sweep, and what the sweep has added.
struct Diagonal {
  Real d, b, z;
};

/// A rotation of columns p and q, for the eigenvectors: s and ρ, zero in lanes that did not rotate.
struct PlaneRotation {
  Real sr, si, rho;
  int p, q;
};

HWY_INLINE void rotate(Complex& g, Complex& h, const Rotation<V>& rotation, Mask rotating) {
  const V gr = g.re.load();
  const V gi = g.im.load();
  const V hr = h.re.load();
  const V hi = h.im.load();
  V newGr = gr;
  V newGi = gi;
  V newHr = hr;
  V newHi = hi;
  rotate(newGr, newGi, newHr, newHi, rotation);
  g.re.store(hn::IfThenElse(rotating, newGr, gr));
  g.im.store(hn::IfThenElse(rotating, newGi, gi));
  h.re.store(hn::IfThenElse(rotating, newHr, hr));
  h.im.store(hn::IfThenElse(rotating, newHi, hi));
}

/// The work arrays of up to LANES decompositions. The names are those of evd<double>.
struct Decompositions {
  int n = 0;
  std::vector<Complex> A;  // upper triangle, n × n
  std::vector<Diagonal> diagonal;
  std::vector<PlaneRotation> rotations;  // in their order
  std::vector<Complex> v;                // a column of V
  Matrix values;                         // of a lane, n × 1

  Complex& a(int i, int j) { return A[static_cast<std::size_t>(i) * n + j]; }

  /// Every lane := a zero matrix of this order, whose decomposition ends at once: so do lanes that
  /// are not loaded.
  void clear(int order) {
    n = order;
    A.assign(static_cast<std::size_t>(n) * n, Complex{});
    diagonal.assign(n, Diagonal{});
    rotations.clear();
    // All that there can be, so that no step but the first of this order allocates.
    rotations.reserve(static_cast<std::size_t>(JACOBI_MAX_SWEEPS) * n * (n - 1) / 2);
    v.assign(n, Complex{});
  }

  /// Lane l, cleared before, := matrix.
  void load(int l, const Matrix& matrix) {
    for (int i = 0; i < n; ++i) {
      diagonal[i].d.lanes[l] = diagonal[i].b.lanes[l] = matrix.getElementAt(i, i).real();
      for (int j = i + 1; j < n; ++j) {
        a(i, j).re.lanes[l] = matrix.getElementAt(i, j).real();
        a(i, j).im.lanes[l] = matrix.getElementAt(i, j).imag();
      }
    }
  }
};

/// A rotation of rows p and q of the Hermitian matrix, of which the upper triangle is stored: left
/// of the diagonal stands the conjugate of what is stored above it. What the next pair waits for is
/// rotated first; the rest comes while the roots and divisions for that pair are under way.
class HermitianRotation {
 public:
  HermitianRotation(Decompositions& decompositions, int row, int column, const Rotation<V>& r,
                    Mask where)
      : batch(&decompositions),
        p(row),
        q(column),
        rotation(r),
        conjugate{r.sr, hn::Neg(r.si), r.rho, r.shift},
        rotating(where) {}

  /// Elements (p, q + 1) and (q, q + 1).
  HWY_INLINE void rotateNext() {
    rotate(batch->a(p, q + 1), batch->a(q, q + 1), conjugate, rotating);
  }

  /// The others, right of column q from `from` on.
  HWY_INLINE void rotateRest(int from) {
    for (int j = from; j < batch->n; ++j) {
      rotate(batch->a(p, j), batch->a(q, j), conjugate, rotating);
    }
    for (int j = 0; j < p; ++j) rotate(batch->a(j, p), batch->a(j, q), rotation, rotating);
    for (int j = p + 1; j < q; ++j) {
      Complex h = batch->a(j, q);
      h.im.store(hn::Neg(h.im.load()));
      rotate(batch->a(p, j), h, conjugate, rotating);
      batch->a(j, q).re = h.re;
      batch->a(j, q).im.store(hn::Neg(h.im.load()));
    }
  }

 private:
  Decompositions* batch;
  int p, q;
  Rotation<V> rotation, conjugate;
  Mask rotating;
};

/// The lanes in which pair (p, q) is to be rotated; elements that are negligible become zero.
HWY_INLINE Mask findRotating(Decompositions& batch, int p, int q, int sweep, V absA, V threshold,
                             Mask running) {
  const Mask rotating = hn::And(running, absA > threshold);
  if (sweep < 5) return rotating;
  const V g = hn::Set(d, 100.0) * absA;
  const Mask ignored = hn::And(running, hn::And(negligible(g, batch.diagonal[p].d.load()),  //
                                                negligible(g, batch.diagonal[q].d.load())));
  assign(batch.a(p, q).re, hn::Zero(d), ignored);
  assign(batch.a(p, q).im, hn::Zero(d), ignored);
  return hn::AndNot(ignored, rotating);
}

/// The rotation that annihilates element (p, q), which it does, and changes the diagonal.
HWY_INLINE Rotation<V> annihilate(Decompositions& batch, int p, int q, V absA, Mask rotating) {
  Complex& a = batch.a(p, q);
  Diagonal& P = batch.diagonal[p];
  Diagonal& Q = batch.diagonal[q];
  const Rotation<V> rotation =
      rotationFor(d, a.re.load(), a.im.load(), absA, Q.d.load() - P.d.load(), rotating);
  assign(P.d, P.d.load() - rotation.shift, rotating);
  assign(Q.d, Q.d.load() + rotation.shift, rotating);
  assign(P.z, P.z.load() - rotation.shift, rotating);
  assign(Q.z, Q.z.load() + rotation.shift, rotating);
  assign(a.re, hn::Zero(d), rotating);
  assign(a.im, hn::Set(d, -0.0), rotating);
  PlaneRotation& kept = batch.rotations.emplace_back();
  kept.sr.store(hn::IfThenElseZero(rotating, rotation.sr));
  kept.si.store(hn::IfThenElseZero(rotating, rotation.si));
  kept.rho.store(hn::IfThenElseZero(rotating, rotation.rho));
  kept.p = p;
  kept.q = q;
  return rotation;
}

/// One sweep over all pairs p < q in the lanes that are not done.
void sweepOnce(Decompositions& batch, int sweep, V threshold, Mask running) {
  for (int p = 0; p + 1 < batch.n; ++p) {
    std::optional<HermitianRotation> last;  // of (p, q − 1)
    for (int q = p + 1; q < batch.n; ++q) {
      if (last) last->rotateNext();
      const V absA = modulusOf(batch.a(p, q).re.load(), batch.a(p, q).im.load());
      const Mask rotating = findRotating(batch, p, q, sweep, absA, threshold, running);
      if (hn::AllFalse(d, rotating)) {
        if (last) last->rotateRest(q + 1);
        last.reset();
        continue;
      }
      const Rotation<V> rotation = annihilate(batch, p, q, absA, rotating);
      if (last) last->rotateRest(q + 1);
      last.emplace(batch, p, q, rotation, rotating);
    }
    if (last) last->rotateRest(batch.n);
  }
}

/// Σ |A(p, q)| over the strictly upper triangle, row by row.
V offDiagonalSum(Decompositions& batch) {
  V sum = hn::Zero(d);
  for (int p = 0; p + 1 < batch.n; ++p) {
    for (int q = p + 1; q < batch.n; ++q) {
      sum = sum + modulusOf(batch.a(p, q).re.load(), batch.a(p, q).im.load());
    }
  }
  return sum;
}

/// The lanes of which an element above the diagonal is not zero.
Mask findUnfinished(Decompositions& batch) {
  const V zero = hn::Zero(d);
  Mask finished = zero == zero;
  for (int p = 0; p + 1 < batch.n; ++p) {
    for (int q = p + 1; q < batch.n; ++q) {
      finished = hn::And(finished, hn::And(batch.a(p, q).re.load() == zero,  //
                                           batch.a(p, q).im.load() == zero));
    }
  }
  return hn::Not(finished);
}

/// Finds the eigenvalues of every lane; returns the lanes that have not converged.
Mask decompose(Decompositions& batch) {
  Mask running = hn::Zero(d) == hn::Zero(d);
  for (int sweep = 0; sweep < JACOBI_MAX_SWEEPS; ++sweep) {
    running = hn::And(running, findUnfinished(batch));
    if (hn::AllFalse(d, running)) break;
    V threshold = hn::Zero(d);
    if (sweep <= 3) {
      const double order = batch.n;
      threshold = hn::Set(d, 0.2) * offDiagonalSum(batch) / hn::Set(d, order * order);
    }
    sweepOnce(batch, sweep, threshold, running);
    for (Diagonal& element : batch.diagonal) {
      assign(element.b, element.b.load() + element.z.load(), running);
      element.d = element.b;
      element.z = {};
    }
  }
  return running;
}

/// v, a unit vector e in every lane, := V · e, with V the product of all rotations.
void rotateBack(Decompositions& batch) {
  for (std::size_t i = batch.rotations.size(); i-- > 0;) {
    const PlaneRotation& r = batch.rotations[i];
    const V sr = r.sr.load();
    const V si = r.si.load();
    const Rotation<V> rotation = {hn::Neg(sr), si, r.rho.load(), hn::Zero(d)};
    // NaN counts as rotated.
    const Mask rotated = hn::Not(hn::And(sr == hn::Zero(d), si == hn::Zero(d)));
    rotate(batch.v[r.p], batch.v[r.q], rotation, rotated);
  }
}

/// batch.v := the principal eigenvector of every lane; returns the lanes that did not converge.
Real findPrincipalVectors(Decompositions& batch) {
  Real unfinished;
  unfinished.store(hn::IfThenElseZero(decompose(batch), hn::Set(d, 1.0)));
  Matrix& values = batch.values;
  reshape(values, batch.n, 1);
  for (int l = 0; l < LANES; ++l) {
    for (int i = 0; i < batch.n; ++i) {
      values.setElementAt(i, 0, batch.diagonal[i].d.lanes[l], 0.0);
    }
    batch.v[values.getMaximumValueIndexInColumn(0)].re.lanes[l] = 1.0;
  }
  rotateBack(batch);
  return unfinished;
}

/// vector := lane l of the n numbers v.
void storeVector(const Complex* v, int n, int l, Matrix& vector) {
  reshape(vector, n, 1);
  for (int i = 0; i < n; ++i) vector.setElementAt(i, 0, v[i].re.lanes[l], v[i].im.lanes[l]);
}

/// The results of items first … first + LANES − 1, or to the end.
void principalVectorsFrom(std::size_t first, const Batch& items) {
  auto& batch = perThread<Decompositions>();
  const int n = items[first].operand->getRowCount();
  const int used = static_cast<int>(std::min<std::size_t>(LANES, items.size() - first));
  batch.clear(n);
  for (int l = 0; l < used; ++l) batch.load(l, *items[first + l].operand);
  const Real unfinished = findPrincipalVectors(batch);
  for (int l = 0; l < used; ++l) {
    Matrix& vector = *items[first + l].result;
    if (unfinished.lanes[l] != 0.0) {  // sorted in its own way
      vector = principalVectorOf(*items[first + l].operand);
    } else {
      storeVector(batch.v.data(), n, l, vector);
    }
  }
}

void principalVectorsOfAll(const Batch& items) {
  for (std::size_t first = 0; first < items.size(); first += LANES) {
    principalVectorsFrom(first, items);
  }
}

/// sums[c] := Σ a(k) · b(k, c), or of conj(a(k)) · b(k, c), over k = 0 … n − 1 in this order, for
/// COLUMNS neighbouring columns of b.
template <int COLUMNS, bool CONJUGATE>
HWY_INLINE void sumProducts(const Complex* a, int stride, const Complex* b, int n, Complex* sums) {
  V re[COLUMNS];
  V im[COLUMNS];
  for (int c = 0; c < COLUMNS; ++c) re[c] = im[c] = hn::Zero(d);
  for (int k = 0; k < n; ++k, a += stride, b += n) {
    const V ar = a->re.load();
    const V ai = CONJUGATE ? hn::Neg(a->im.load()) : a->im.load();
    for (int c = 0; c < COLUMNS; ++c) {
      const V br = b[c].re.load();
      const V bi = b[c].im.load();
      re[c] = re[c] + (ar * br - ai * bi);
      im[c] = im[c] + (ar * bi + ai * br);
    }
  }
  for (int c = 0; c < COLUMNS; ++c) {
    sums[c].re.store(re[c]);
    sums[c].im.store(im[c]);
  }
}

/// The same for columns from … n − 1 of b (n × n), into row.
template <bool CONJUGATE>
void sumRow(const Complex* a, int stride, const Complex* b, int n, int from, Complex* row) {
  int j = from;
  for (; j + 4 <= n; j += 4) sumProducts<4, CONJUGATE>(a, stride, b + j, n, row + j);
  for (; j < n; ++j) sumProducts<1, CONJUGATE>(a, stride, b + j, n, row + j);
}

/// The lanes of which a number is not finite count in `broken`.
HWY_INLINE void findBroken(const Complex& z, V& broken) {
  const V re = z.re.load();
  const V im = z.im.load();
  broken = broken + ((re - re) + (im - im));  // NaN
}

/// The operands of up to LANES pairs.
struct Pairs {
  std::vector<Complex> A, inverseR, v;
  std::vector<Complex> row;  // of R⁻ᴴ · A

  void load(const EigenPair* pairs, int used, int n) {
    const std::complex<double>* ofA[LANES];
    const std::complex<double>* ofR[LANES];
    for (int l = 0; l < LANES; ++l) {  // lanes that are not used repeat the first
      ofA[l] = pairs[l < used ? l : 0].A->data();
      ofR[l] = pairs[l < used ? l : 0].inverseR->data();
    }
    const std::size_t count = static_cast<std::size_t>(n) * n;
    A.resize(count);
    inverseR.resize(count);
    row.resize(n);
    v.resize(n);
    loadLanes(ofA, n * n, A.data());
    loadLanes(ofR, n * n, inverseR.data());
  }

  /// batch := D = (R⁻ᴴ · A) · R⁻¹, of which the upper triangle is used.
  void formD(Decompositions& batch, V& broken) {
    const int n = batch.n;
    for (int i = 0; i < n; ++i) {
      sumRow<true>(&inverseR[i], n, A.data(), n, 0, row.data());
      sumRow<false>(row.data(), 1, inverseR.data(), n, i, &batch.a(i, 0));
      for (int j = i; j < n; ++j) findBroken(batch.a(i, j), broken);
      batch.diagonal[i].d = batch.diagonal[i].b = batch.a(i, i).re;
    }
  }

  /// v := R⁻¹ · y.
  void formV(const std::vector<Complex>& y, int n, V& broken) {
    for (int i = 0; i < n; ++i) {
      Complex sum;
      V re = hn::Zero(d);
      V im = hn::Zero(d);
      for (int k = 0; k < n; ++k) {
        const V ar = inverseR[i * n + k].re.load();
        const V ai = inverseR[i * n + k].im.load();
        const V br = y[k].re.load();
        const V bi = y[k].im.load();
        re = re + (ar * br - ai * bi);
        im = im + (ar * bi + ai * br);
      }
      sum.re.store(re);
      sum.im.store(im);
      findBroken(sum, broken);
      v[i] = sum;
    }
  }
};

void generalisedVectorsFrom(std::size_t first, const std::vector<EigenPair>& items) {
  auto& pairs = perThread<Pairs>();
  auto& batch = perThread<Decompositions>();
  const int n = items[first].A->getRowCount();
  const int used = static_cast<int>(std::min<std::size_t>(LANES, items.size() - first));
  batch.clear(n);
  pairs.load(&items[first], used, n);
  V broken = hn::Zero(d);
  pairs.formD(batch, broken);
  const Real unfinished = findPrincipalVectors(batch);
  pairs.formV(batch.v, n, broken);
  Real alone;
  alone.store(broken + unfinished.load());
  for (int l = 0; l < used; ++l) {
    const EigenPair& pair = items[first + l];
    if (alone.lanes[l] != 0.0) {
      *pair.v = generalisedVectorOf(pair);
    } else {
      storeVector(pairs.v.data(), n, l, *pair.v);
    }
  }
}

void generalisedVectorsOfAll(const std::vector<EigenPair>& items) {
  for (std::size_t first = 0; first < items.size(); first += LANES) {
    generalisedVectorsFrom(first, items);
  }
}

}  // namespace
}  // namespace BF::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace BF {

HWY_EXPORT(principalVectorsOfAll);
HWY_EXPORT(generalisedVectorsOfAll);

namespace {

void requireOrder(const Matrix& matrix, int n) {
  if (matrix.getRowCount() != matrix.getColumnCount()) throw NotSquareMatrixException();
  if (matrix.getRowCount() != n) throw MatrixSizeMismatchException();
  if (n == 0) throw IndexOutOfBoundException();
}

}  // namespace

void principalEigenVectors(const Batch& batch) {
  for (const BatchItem& item : batch) requireOrder(*item.operand, batch[0].operand->getRowCount());
  HWY_DYNAMIC_DISPATCH(principalVectorsOfAll)(batch);
}

void principalGeneralisedVectors(const std::vector<EigenPair>& pairs) {
  for (const EigenPair& pair : pairs) {
    requireOrder(*pair.A, pairs[0].A->getRowCount());
    requireOrder(*pair.inverseR, pairs[0].A->getRowCount());
  }
  HWY_DYNAMIC_DISPATCH(generalisedVectorsOfAll)(pairs);
}

}  // namespace BF
#endif
