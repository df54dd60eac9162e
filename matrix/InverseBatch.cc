// Compiled once for each kind of processor; the best one is chosen at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "matrix/InverseBatch.cc"
#include "matrix/HighwayTargets.h"
// This one comes first.
#include <hwy/foreach_target.h>

#include "matrix/InverseBatch.h"
#include "matrix/Lanes-inl.h"
#include "matrix/PerThread.h"

#ifndef ZELK_MATRIX_INVERSE_BATCH_ONCE
#define ZELK_MATRIX_INVERSE_BATCH_ONCE

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>

#endif

HWY_BEFORE_NAMESPACE();
namespace BF::HWY_NAMESPACE {
namespace {

// The elimination of Matrix::Inverse() for several matrices at once, one in each lane: operations,
// their order and so every bit are the same.

/// A complex number of each lane, in registers.
struct Number {
  V re, im;
};

/// x / p as x · conj(p) / |p|².
HWY_INLINE Number dividedBy(const Number& x, const Number& p) {
  const V norm = p.re * p.re + p.im * p.im;
  const V conjugate = hn::Neg(p.im);
  return {(x.re * p.re - x.im * conjugate) / norm, (x.re * conjugate + x.im * p.re) / norm};
}

HWY_INLINE Number load(const Complex& z) { return {z.re.load(), z.im.load()}; }

/// The inversions of up to LANES matrices: rows of W and R beside each other.
class InverseBatch {
 public:
  void clear(int order) {
    n = order;
    rows.assign(static_cast<std::size_t>(2) * n * n, Complex{});
    std::fill_n(pivotIsZero, LANES, false);
    for (int i = 0; i < n; ++i) {  // lanes that are not loaded invert the identity
      row(i)[i].re.store(hn::Set(d, 1.0));
      row(i)[n + i].re.store(hn::Set(d, 1.0));
    }
  }

  void load(int l, const Matrix& matrix) {
    const std::complex<double>* z = matrix.data();
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j < n; ++j, ++z) {
        row(i)[j].re.lanes[l] = z->real();
        row(i)[j].im.lanes[l] = z->imag();
      }
    }
  }

  void invert() {
    for (int i = 0; i < n; ++i) {
      const Number pivot = HWY_NAMESPACE::load(row(i)[i]);
      for (int l = 0; l < LANES; ++l) {
        const Complex& p = row(i)[i];
        pivotIsZero[l] = pivotIsZero[l] || (p.re.lanes[l] == 0.0 && p.im.lanes[l] == 0.0);
      }
      for (int j = 0; j < n; ++j) {
        if (j != i) eliminate(i, j, pivot);
      }
      for (int c = 0; c < 2 * n; ++c) {
        const Number quotient = dividedBy(HWY_NAMESPACE::load(row(i)[c]), pivot);
        row(i)[c].re.store(quotient.re);
        row(i)[c].im.store(quotient.im);
      }
    }
  }

  /// Lane l of R; false when it is to be computed by itself.
  bool store(int l, Matrix& result) {
    if (pivotIsZero[l]) return false;
    reshape(result, n, n);
    bool finite = true;
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j < n; ++j) {
        const Complex& z = row(i)[n + j];
        finite = finite && std::isfinite(z.re.lanes[l]) && std::isfinite(z.im.lanes[l]);
        result.setElementAt(i, j, z.re.lanes[l], z.im.lanes[l]);
      }
    }
    return finite;
  }

 private:
  Complex* row(int i) { return rows.data() + static_cast<std::size_t>(2) * n * i; }

  // Adds f times row i to row j, with f = −W(j, i) / pivot.
  void eliminate(int i, int j, const Number& pivot) {
    const Number w = HWY_NAMESPACE::load(row(j)[i]);
    const Number f = dividedBy({hn::Neg(w.re), hn::Neg(w.im)}, pivot);
    for (int c = 0; c < 2 * n; ++c) {
      const Number x = HWY_NAMESPACE::load(row(i)[c]);
      Complex& y = row(j)[c];
      y.re.store(y.re.load() + (f.re * x.re - f.im * x.im));
      y.im.store(y.im.load() + (f.re * x.im + f.im * x.re));
    }
  }

  int n = 0;
  std::vector<Complex> rows;
  bool pivotIsZero[LANES] = {};
};

void inversesOfAll(const Batch& items) {
  auto& batch = perThread<InverseBatch>();
  for (std::size_t first = 0; first < items.size(); first += LANES) {
    const int used = static_cast<int>(std::min<std::size_t>(LANES, items.size() - first));
    batch.clear(items[first].operand->getRowCount());
    for (int l = 0; l < used; ++l) batch.load(l, *items[first + l].operand);
    batch.invert();
    for (int l = 0; l < used; ++l) {
      const auto& [operand, result] = items[first + l];
      if (!batch.store(l, *result)) *result = operand->Inverse();
    }
  }
}

}  // namespace
}  // namespace BF::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace BF {

HWY_EXPORT(inversesOfAll);

void inverses(const Batch& batch) {
  for (const auto& [operand, result] : batch) {
    if (operand->getRowCount() != operand->getColumnCount()) throw NotSquareMatrixException();
    if (operand->getRowCount() != batch[0].operand->getRowCount()) {
      throw MatrixSizeMismatchException();
    }
  }
  HWY_DYNAMIC_DISPATCH(inversesOfAll)(batch);
}

}  // namespace BF
#endif
