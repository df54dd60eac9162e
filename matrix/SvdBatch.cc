// Compiled once for each kind of processor; the best one is chosen at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "matrix/SvdBatch.cc"
#include "matrix/HighwayTargets.h"
// This one comes first.
#include <hwy/foreach_target.h>

#include "matrix/CholeskyFactor.h"
#include "matrix/PerThread.h"
#include "matrix/SvdBatch.h"
#include "matrix/TallSvdBatch-inl.h"

#ifndef ZELK_MATRIX_SVD_BATCH_ONCE
#define ZELK_MATRIX_SVD_BATCH_ONCE

#include <algorithm>
#include <complex>
#include <cstddef>

#endif

HWY_BEFORE_NAMESPACE();
namespace BF::HWY_NAMESPACE {
namespace {

/// Loads of[first] … into the lanes of batch, decomposes them and returns how many there are.
int decomposeFrom(std::size_t first, const Batch& items, bool transpose, int leftColumns,
                  TallSvdBatch& batch, bool ofCholeskyFactor = false) {
  const int rows = items[first].operand->getRowCount();
  const int columns = items[first].operand->getColumnCount();
  batch.clear(transpose ? columns : rows, transpose ? rows : columns, leftColumns);
  const int used = static_cast<int>(std::min<std::size_t>(LANES, items.size() - first));
  for (int l = 0; l < used; ++l) batch.load(l, *items[first + l].operand, transpose);
  if (ofCholeskyFactor) {
    thread_local Matrix R;  // its storage is kept between calls
    batch.factorise();
    for (int l = 0; l < used; ++l) {
      if (!batch.isUnusable(l)) continue;
      choleskyFactor(*items[first + l].operand, R);
      batch.replace(l, R);
    }
  }
  batch.decompose();
  return used;
}

/// vs := (1 / value) · v, an element of V · Σ⁺.
HWY_INLINE void timesInverse(const Complex& v, V inverse, Complex& vs) {
  const V zero = hn::Zero(d);
  vs.re.store(zero + v.re.load() * inverse);
  vs.im.store(zero + v.im.load() * inverse);
}

/// V · Σ⁺ · Uᴴ, of the operands or of their Cholesky factors. What the zeros of Σ⁺ add to the sums
/// is nothing.
void pseudoInversesFrom(std::size_t first, const Batch& items, bool ofCholeskyFactor) {
  auto& vs = perThread<std::vector<Complex>>();
  const bool wide = items[first].operand->getRowCount() < items[first].operand->getColumnCount();
  const int p =
      std::max(items[first].operand->getRowCount(), items[first].operand->getColumnCount());
  const int q =
      std::min(items[first].operand->getRowCount(), items[first].operand->getColumnCount());
  auto& batch = perThread<TallSvdBatch>();
  const int used = decomposeFrom(first, items, wide, q, batch, ofCholeskyFactor);
  for (int l = 0; l < used; ++l) {
    reshape(*items[first + l].result, items[first].operand->getColumnCount(),
            items[first].operand->getRowCount());
  }

  vs.resize(static_cast<std::size_t>(q) * q);
  for (int k = 0; k < q; ++k) {
    Real inverse = {};
    for (int l = 0; l < used; ++l) {
      const double value = batch.value(k).lanes[l];
      if (value > SMALL_NUMBER) inverse.lanes[l] = 1.0 / value;
    }
    for (int i = 0; i < q; ++i) timesInverse(batch.v(i, k), inverse.load(), vs[i * q + k]);
  }
  for (int i = 0; i < q; ++i) {
    for (int j = 0; j < p; ++j) {
      V re = hn::Zero(d);
      V im = hn::Zero(d);
      for (int k = 0; k < q; ++k) {
        const V xr = vs[i * q + k].re.load();
        const V xi = vs[i * q + k].im.load();
        const V yr = batch.u(j, k).re.load();
        const V yi = hn::Neg(batch.u(j, k).im.load());
        re = re + (xr * yr - xi * yi);
        im = im + (xr * yi + xi * yr);
      }
      Complex element;
      element.re.store(re);
      element.im.store(im);
      const int at = wide ? j * q + i : i * p + j;
      for (int l = 0; l < used; ++l) {
        items[first + l].result->data()[at] = {element.re.lanes[l], element.im.lanes[l]};
      }
    }
  }
  for (int l = 0; l < used; ++l) {
    if (!batch.isUnusable(l)) continue;
    const Matrix& operand = *items[first + l].operand;
    *items[first + l].result =
        ofCholeskyFactor ? operand.inverseCholeskyFactor() : operand.pseudoInverse();
  }
}

void pseudoInversesOfAll(const Batch& items, bool ofCholeskyFactor) {
  for (std::size_t i = 0; i < items.size(); i += LANES) {
    pseudoInversesFrom(i, items, ofCholeskyFactor);
  }
}

/// *items[i].result := columns begin … end − 1 of the U of *items[i].operand.
void leftVectorsOfAll(const Batch& items, int begin, int end, int formed) {
  auto& batch = perThread<TallSvdBatch>();
  for (std::size_t first = 0; first < items.size(); first += LANES) {
    const int used = decomposeFrom(first, items, false, formed, batch);
    const int m = items[first].operand->getRowCount();
    for (int l = 0; l < used; ++l) {
      Matrix& result = *items[first + l].result;
      if (batch.isUnusable(l)) {
        Matrix U;
        Matrix S;
        Matrix V;
        items[first + l].operand->singularValueDecomposition(U, S, V);
        result = U.getSubmatrix(0, begin, m, end - begin);
        continue;
      }
      reshape(result, m, end - begin);
      std::complex<double>* element = result.data();
      for (int i = 0; i < m; ++i) {
        for (int j = begin; j < end; ++j) {
          const Complex& u = batch.u(i, j);
          *element++ = {u.re.lanes[l], u.im.lanes[l]};
        }
      }
    }
  }
}

}  // namespace
}  // namespace BF::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace BF {

HWY_EXPORT(pseudoInversesOfAll);
HWY_EXPORT(leftVectorsOfAll);

namespace {

void requireOneShape(const Batch& batch) {
  for (const auto& [operand, result] : batch) {
    if (operand->getRowCount() != batch[0].operand->getRowCount() ||
        operand->getColumnCount() != batch[0].operand->getColumnCount()) {
      throw MatrixSizeMismatchException();
    }
  }
}

}  // namespace

void pseudoInverses(const Batch& batch) {
  requireOneShape(batch);
  HWY_DYNAMIC_DISPATCH(pseudoInversesOfAll)(batch, false);
}

void inverseCholeskyFactors(const Batch& batch) {
  requireOneShape(batch);
  for (const BatchItem& item : batch) {
    if (item.operand->getRowCount() != item.operand->getColumnCount()) {
      throw NotSquareMatrixException();
    }
  }
  HWY_DYNAMIC_DISPATCH(pseudoInversesOfAll)(batch, true);
}

void orthogonalComplements(const Batch& batch) {
  requireOneShape(batch);
  if (batch.empty()) return;
  const int m = batch[0].operand->getRowCount();
  const int n = batch[0].operand->getColumnCount();
  if (m < n) throw MatrixSizeMismatchException();
  HWY_DYNAMIC_DISPATCH(leftVectorsOfAll)(batch, n, m, m);
}

void principalSingularVectors(const Batch& batch) {
  requireOneShape(batch);
  if (batch.empty()) return;
  const int n = batch[0].operand->getRowCount();
  if (n != batch[0].operand->getColumnCount()) throw NotSquareMatrixException();
  if (n == 0) throw IndexOutOfBoundException();
  HWY_DYNAMIC_DISPATCH(leftVectorsOfAll)(batch, 0, 1, n);
}

}  // namespace BF
#endif
