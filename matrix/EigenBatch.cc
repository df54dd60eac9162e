// Compiled once for each kind of processor; the best one is chosen at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "matrix/EigenBatch.cc"
#include "matrix/HighwayTargets.h"
// This one comes first.
#include <hwy/foreach_target.h>

#include "matrix/EigenBatch.h"
#include "matrix/JacobiRotation-inl.h"
#include "matrix/Lanes-inl.h"
#include "matrix/evd.h"

#ifndef ZELK_MATRIX_EIGEN_BATCH_ONCE
#define ZELK_MATRIX_EIGEN_BATCH_ONCE

#include <algorithm>
#include <cstddef>
#include <mutex>

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

/// Rotates rows p and q of the Hermitian matrix, of which the upper triangle is stored: left of the
/// diagonal stands the conjugate of what is stored above it.
HWY_INLINE void rotateHermitian(Decompositions& batch, int p, int q, const Rotation<V>& r,
                                Mask rotating) {
  const Rotation<V> conjugate = {r.sr, hn::Neg(r.si), r.rho, r.shift};
  for (int j = 0; j < p; ++j) rotate(batch.a(j, p), batch.a(j, q), r, rotating);
  for (int j = p + 1; j < q; ++j) {
    Complex h = batch.a(j, q);
    h.im.store(hn::Neg(h.im.load()));
    rotate(batch.a(p, j), h, conjugate, rotating);
    batch.a(j, q).re = h.re;
    batch.a(j, q).im.store(hn::Neg(h.im.load()));
  }
  for (int j = q + 1; j < batch.n; ++j) {
    rotate(batch.a(p, j), batch.a(q, j), conjugate, rotating);
  }
}

/// One sweep over all pairs p < q in the lanes that are not done.
void sweepOnce(Decompositions& batch, int sweep, V threshold, Mask running) {
  for (int p = 0; p + 1 < batch.n; ++p) {
    for (int q = p + 1; q < batch.n; ++q) {
      Complex& a = batch.a(p, q);
      Diagonal& P = batch.diagonal[p];
      Diagonal& Q = batch.diagonal[q];
      const V absA = modulusOf(a.re.load(), a.im.load());
      const V g = hn::Set(d, 100.0) * absA;
      Mask rotating = hn::And(running, absA > threshold);
      if (sweep >= 5) {
        const Mask ignored = hn::And(running, hn::And(negligible(g, P.d.load()),  //
                                                      negligible(g, Q.d.load())));
        assign(a.re, hn::Zero(d), ignored);
        assign(a.im, hn::Zero(d), ignored);
        rotating = hn::AndNot(ignored, rotating);
      }
      if (hn::AllFalse(d, rotating)) continue;
      const Rotation<V> rotation =
          rotationFor(d, a.re.load(), a.im.load(), absA, Q.d.load() - P.d.load(), rotating);
      assign(P.d, P.d.load() - rotation.shift, rotating);
      assign(Q.d, Q.d.load() + rotation.shift, rotating);
      assign(P.z, P.z.load() - rotation.shift, rotating);
      assign(Q.z, Q.z.load() + rotation.shift, rotating);
      assign(a.re, hn::Zero(d), rotating);
      assign(a.im, hn::Set(d, -0.0), rotating);
      rotateHermitian(batch, p, q, rotation, rotating);
      PlaneRotation& kept = batch.rotations.emplace_back();
      kept.sr.store(hn::IfThenElseZero(rotating, rotation.sr));
      kept.si.store(hn::IfThenElseZero(rotating, rotation.si));
      kept.rho.store(hn::IfThenElseZero(rotating, rotation.rho));
      kept.p = p;
      kept.q = q;
    }
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

/// vectors[i] of matrices[i] for i = first … first + LANES − 1, or to the end.
void principalVectorsFrom(int first, const Batch& items) {
  thread_local Decompositions batch;  // its storage is kept between calls
  const int n = items[first].operand->getRowCount();
  const int used = std::min(LANES, static_cast<int>(items.size()) - first);
  batch.clear(n);
  for (int l = 0; l < used; ++l) batch.load(l, *items[first + l].operand);
  Real unfinished;
  unfinished.store(hn::IfThenElseZero(decompose(batch), hn::Set(d, 1.0)));

  thread_local Matrix values;
  reshape(values, n, 1);
  for (int l = 0; l < used; ++l) {
    for (int i = 0; i < n; ++i) values.setElementAt(i, 0, batch.diagonal[i].d.lanes[l], 0.0);
    batch.v[values.getMaximumValueIndexInColumn(0)].re.lanes[l] = 1.0;
  }
  rotateBack(batch);
  for (int l = 0; l < used; ++l) {
    Matrix& vector = *items[first + l].result;
    if (unfinished.lanes[l] != 0.0) {  // sorted in its own way
      vector = principalVectorOf(*items[first + l].operand);
      continue;
    }
    reshape(vector, n, 1);
    for (int i = 0; i < n; ++i) {
      vector.setElementAt(i, 0, batch.v[i].re.lanes[l], batch.v[i].im.lanes[l]);
    }
  }
}

void principalVectorsOfAll(const Batch& items) {
  const int count = static_cast<int>(items.size());
  for (int first = 0; first < count; first += LANES) principalVectorsFrom(first, items);
}

}  // namespace
}  // namespace BF::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace BF {

HWY_EXPORT(principalVectorsOfAll);

void principalEigenVectors(const Batch& batch) {
  for (const auto& [operand, result] : batch) {
    const int n = operand->getRowCount();
    if (n != operand->getColumnCount()) throw NotSquareMatrixException();
    if (n != batch[0].operand->getRowCount()) throw MatrixSizeMismatchException();
    if (n == 0) throw IndexOutOfBoundException();
  }
  HWY_DYNAMIC_DISPATCH(principalVectorsOfAll)(batch);
}

}  // namespace BF
#endif
