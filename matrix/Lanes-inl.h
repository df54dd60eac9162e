// Numbers of several matrices side by side in the lanes of the processor's vectors, one matrix in
// each lane. Files that include this are compiled once for each kind of processor.
#include <hwy/highway.h>

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
  if (hn::AllTrue(d, hn::Or(plain, zero))) return hn::Sqrt(square);
  Complex x;
  x.re.store(re);
  x.im.store(im);
  for (int l = 0; l < LANES; ++l) x.re.lanes[l] = modulus(x.re.lanes[l], x.im.lanes[l]);
  return x.re.load();
}

}  // namespace BF::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
