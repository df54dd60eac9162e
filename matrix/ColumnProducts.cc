// Compiled once for each kind of processor; the best one is chosen at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "matrix/ColumnProducts.cc"
#include "matrix/HighwayTargets.h"
// This one comes first.
#include <hwy/foreach_target.h>

#include "matrix/ColumnProducts.h"
#include "matrix/Lanes-inl.h"
#include "matrix/PerThread.h"

#ifndef ZELK_MATRIX_COLUMN_PRODUCTS_ONCE
#define ZELK_MATRIX_COLUMN_PRODUCTS_ONCE

#include <cstddef>

namespace BF {

/// Element (i, k) of Y. Never inlined: where the processor can, g++ 12 fuses the multiplications
/// and additions of complex numbers in spite of -ffp-contract=off, which changes bits.
HWY_NOINLINE inline std::complex<double> columnProduct(const Matrix& W, const Matrix& X, int i,
                                                       int k) {
  const int M = W.getColumnCount();
  return dotProduct(W.data() + std::ptrdiff_t{i} * M, 1, X.data() + k, X.getColumnCount(), M);
}

}  // namespace BF

#endif

HWY_BEFORE_NAMESPACE();
namespace BF::HWY_NAMESPACE {
namespace {

/// LANES columns of Y from first on; w and x hold those of W and X.
void multiplyLanes(const std::vector<Matrix>& W, const Matrix& X, Matrix& Y, int first,
                   const Complex* w, const Complex* x) {
  const int M = X.getRowCount();
  for (int i = 0; i < Y.getRowCount(); ++i, w += M) {
    V re = hn::Zero(d);
    V im = hn::Zero(d);
    for (int m = 0; m < M; ++m) {
      const V wr = w[m].re.load();
      const V wi = w[m].im.load();
      const V xr = x[m].re.load();
      const V xi = x[m].im.load();
      re = re + (wr * xr - wi * xi);
      im = im + (wr * xi + wi * xr);
    }
    std::complex<double>* y = Y.data() + std::ptrdiff_t{i} * Y.getColumnCount() + first;
    hn::StoreInterleaved2(re, im, d, reinterpret_cast<double*>(y));
    // Where the plain formula gives NaN, complex multiplication can give something else.
    if (hn::AllTrue(d, hn::And(re == re, im == im))) continue;
    for (int l = 0; l < LANES; ++l) {
      y[l] = columnProduct(W[static_cast<std::size_t>(first) + l], X, i, first + l);
    }
  }
}

struct Operands {
  std::vector<Complex> w, x;
};

void multiplyAll(const std::vector<Matrix>& W, const Matrix& X, Matrix& Y) {
  auto& [w, x] = perThread<Operands>();
  const int M = X.getRowCount();
  const int N = Y.getRowCount();
  w.resize(static_cast<std::size_t>(N) * M);
  x.resize(M);
  int k = 0;
  for (; k + LANES <= Y.getColumnCount(); k += LANES) {
    const std::complex<double>* rows[LANES];
    for (int l = 0; l < LANES; ++l) rows[l] = W[static_cast<std::size_t>(k) + l].data();
    loadLanes(rows, N * M, w.data());
    loadColumns(X, k, x.data());
    multiplyLanes(W, X, Y, k, w.data(), x.data());
  }
  for (; k < Y.getColumnCount(); ++k) {
    for (int i = 0; i < N; ++i) Y.setElementAt(i, k, columnProduct(W[k], X, i, k));
  }
}

}  // namespace
}  // namespace BF::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace BF {

HWY_EXPORT(multiplyAll);

void multiplyColumns(const std::vector<Matrix>& W, const Matrix& X, Matrix& Y) {
  const int K = Y.getColumnCount();
  if (K > X.getColumnCount() || static_cast<std::size_t>(K) > W.size()) {
    throw IndexOutOfBoundException();
  }
  for (int k = 0; k < K; ++k) {
    if (W[k].getRowCount() != Y.getRowCount() || W[k].getColumnCount() != X.getRowCount()) {
      throw MatrixSizeMismatchException();
    }
  }
  HWY_DYNAMIC_DISPATCH(multiplyAll)(W, X, Y);
}

}  // namespace BF
#endif
