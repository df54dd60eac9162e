// Numbers of several matrices side by side in the lanes of the processor's vectors, one matrix in
// each lane. Files that include this are compiled once for each kind of processor.
#include <hwy/highway.h>

#include <complex>

#include "matrix/Matrix.h"
#include "matrix/Modulus.h"

// Included once more for each kind of processor, which a plain guard would prevent.
#if defined(ZELK_MATRIX_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef ZELK_MATRIX_LANES_INL_H
#undef ZELK_MATRIX_LANES_INL_H
#else
#define ZELK_MATRIX_LANES_INL_H
#endif

HWY_BEFORE_NAMESPACE();
namespace BF::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using D = hn::CappedTag<double, 8>;
using V = hn::Vec<D>;
using Mask = hn::Mask<D>;
constexpr D d;
constexpr int LANES = hn::MaxLanes(d);

/// One real number of each of the matrices.
struct alignas(LANES * sizeof(double)) Real {
  double lanes[LANES];

  V load() const { return hn::Load(d, lanes); }
  void store(V x) { hn::Store(x, d, lanes); }
};

/// A complex one.
struct Complex {
  Real re, im;
};

#if HWY_TARGET != HWY_SCALAR
/// Element (i, j) of a square array of pairs of lanes := element (j, i).
HWY_INLINE void transposePairs(V* x) {
  if constexpr (LANES == 4) {
    const V upper = hn::ConcatUpperUpper(d, x[1], x[0]);
    x[0] = hn::ConcatLowerLower(d, x[1], x[0]);
    x[1] = upper;
  } else if constexpr (LANES == 8) {
    const V even01 = hn::OddEvenBlocks(hn::SwapAdjacentBlocks(x[1]), x[0]);
    const V odd01 = hn::OddEvenBlocks(x[1], hn::SwapAdjacentBlocks(x[0]));
    const V even23 = hn::OddEvenBlocks(hn::SwapAdjacentBlocks(x[3]), x[2]);
    const V odd23 = hn::OddEvenBlocks(x[3], hn::SwapAdjacentBlocks(x[2]));
    x[0] = hn::ConcatLowerLower(d, even23, even01);
    x[1] = hn::ConcatLowerLower(d, odd23, odd01);
    x[2] = hn::ConcatUpperUpper(d, even23, even01);
    x[3] = hn::ConcatUpperUpper(d, odd23, odd01);
  }
}

#endif

/// Lane l of to[i] := element i of rows[l], for LANES rows of count elements.
HWY_INLINE void loadLanes(const std::complex<double>* const* rows, int count, Complex* to) {
  int i = 0;
#if HWY_TARGET != HWY_SCALAR
  constexpr int HALF = LANES / 2;  // complex numbers of a vector
  for (; i + HALF <= count; i += HALF) {
    V re[HALF];
    V im[HALF];
    for (std::ptrdiff_t h = 0; h < HALF; ++h) {
      const V even = hn::LoadU(d, reinterpret_cast<const double*>(rows[2 * h] + i));
      const V odd = hn::LoadU(d, reinterpret_cast<const double*>(rows[2 * h + 1] + i));
      re[h] = hn::InterleaveLower(d, even, odd);
      im[h] = hn::InterleaveUpper(d, even, odd);
    }
    transposePairs(re);
    transposePairs(im);
    for (int h = 0; h < HALF; ++h) {
      to[i + h].re.store(re[h]);
      to[i + h].im.store(im[h]);
    }
  }
#endif
  for (; i < count; ++i) {
    for (int l = 0; l < LANES; ++l) {
      to[i].re.lanes[l] = rows[l][i].real();
      to[i].im.lanes[l] = rows[l][i].imag();
    }
  }
}

/// Element i of rows[l] := lane l of from[i], for LANES rows of count elements.
HWY_INLINE void storeLanes(const Complex* from, int count, std::complex<double>* const* rows) {
  int i = 0;
#if HWY_TARGET != HWY_SCALAR
  constexpr int HALF = LANES / 2;
  for (; i + HALF <= count; i += HALF) {
    V re[HALF];
    V im[HALF];
    for (int h = 0; h < HALF; ++h) {
      re[h] = from[i + h].re.load();
      im[h] = from[i + h].im.load();
    }
    transposePairs(re);
    transposePairs(im);
    for (std::ptrdiff_t h = 0; h < HALF; ++h) {
      hn::StoreU(hn::InterleaveLower(d, re[h], im[h]), d,
                 reinterpret_cast<double*>(rows[2 * h] + i));
      hn::StoreU(hn::InterleaveUpper(d, re[h], im[h]), d,
                 reinterpret_cast<double*>(rows[2 * h + 1] + i));
    }
  }
#endif
  for (; i < count; ++i) {
    for (int l = 0; l < LANES; ++l) rows[l][i] = {from[i].re.lanes[l], from[i].im.lanes[l]};
  }
}

/// Lane l of to[i] := element (i, first + l) of a spectrum, which has a column for each bin.
HWY_INLINE void loadColumns(const Matrix& spectrum, int first, Complex* to) {
  const double* row = reinterpret_cast<const double*>(spectrum.data() + first);
  const std::ptrdiff_t rowLength = std::ptrdiff_t{2} * spectrum.getColumnCount();
  for (int i = 0; i < spectrum.getRowCount(); ++i, row += rowLength) {
    V re;
    V im;
    hn::LoadInterleaved2(d, row, re, im);
    to[i].re.store(re);
    to[i].im.store(im);
  }
}

/// x := y in the lanes `where`.
HWY_INLINE void assign(Real& x, V y, Mask where) { x.store(hn::IfThenElse(where, y, x.load())); }

HWY_INLINE void assign(Complex& x, V re, V im, Mask where) {
  assign(x.re, re, where);
  assign(x.im, im, where);
}

/// |re + i·im| as modulus() of Modulus.h gives it.
HWY_INLINE V modulusOf(V re, V im) {
  const V square = re * re + im * im;
  const Mask plain = hn::And(square > hn::Set(d, 1e-280), square < hn::Set(d, 1e280));
  const Mask zero = hn::And(re == hn::Zero(d), im == hn::Zero(d));
  const V root = hn::Sqrt(square);
  if (hn::AllTrue(d, hn::Or(plain, zero))) return root;
  Complex x;
  Real result;
  Real usual;
  x.re.store(re);
  x.im.store(im);
  result.store(root);
  usual.store(hn::IfThenElseZero(hn::Or(plain, zero), hn::Set(d, 1.0)));
  for (int l = 0; l < LANES; ++l) {
    if (usual.lanes[l] == 0.0) result.lanes[l] = modulus(x.re.lanes[l], x.im.lanes[l]);
  }
  return result.load();
}

}  // namespace BF::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
