// The rotation of Jacobi's method for one Hermitian matrix in each lane of the processor's vectors.
// Files that include this are compiled once for each kind of processor.
#include <hwy/highway.h>

#include <cmath>

#include "matrix/Modulus.h"

// Included once more for each kind of processor, which a plain guard would prevent.
#if defined(ZELK_MATRIX_JACOBI_ROTATION_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef ZELK_MATRIX_JACOBI_ROTATION_INL_H
#undef ZELK_MATRIX_JACOBI_ROTATION_INL_H
#else
#define ZELK_MATRIX_JACOBI_ROTATION_INL_H
#endif

HWY_BEFORE_NAMESPACE();
namespace BF::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

/// The rotation that annihilates A(p, q): column p becomes c · v_p − s · v_q and column q becomes
/// s̄ · v_p + c · v_q, with c = 1 / √(|t|² + 1), s = t · c and τ = s / (1 + c).
template <class V>
struct Rotation {
  V sr, si;  ///< s
  V rho;     ///< s · τ̄, real
  V shift;   ///< t · A(p, q), real: d(p) falls and d(q) grows by it
};

/// Where adding x to y changes nothing.
template <class V>
HWY_INLINE auto negligible(V x, V y) {
  return hn::Abs(y) + x == hn::Abs(y);
}

/// Whether ordinaryRotation() can be used as it is: no product in it overflows or underflows.
HWY_INLINE bool isOrdinary(double r) { return r > 1e-140 && r < 1e140; }

template <class D, class V = hn::Vec<D>>
HWY_INLINE hn::Mask<D> ordinary(D d, V r) {
  return hn::And(r > hn::Set(d, 1e-140), r < hn::Set(d, 1e140));
}

/// a = A(p, q) with modulus |a|, h = d(q) − d(p), r = √(h² + 4·|a|²), which is ordinary(). The
/// parameter is
///   t = ā / h              when |a| is negligible next to h,
///   t = (r − h) / (2·a)    otherwise.
/// With u = r + |h| the second is |t| = x / y, where (x, y) is (2·|a|, u) for a positive h and
/// (u, 2·|a|) for another: no difference that loses the digits of a small |a|. The first is
/// (2·|a|, u) as well, with the sign of h. As x² + y² = l² = 2·r·u, |s| = x / l and
/// s · τ̄ = x² / (l · (l + y)).
template <class D, class V = hn::Vec<D>>
HWY_INLINE Rotation<V> ordinaryRotation(D d, V ar, V ai, V absA, V h, V r) {
  const V zero = hn::Zero(d);
  const V two = hn::Set(d, 2.0);
  const V u = r + hn::Abs(h);
  const V l = hn::Sqrt(two * r * u);
  const auto direct = hn::Or(h > zero, negligible(hn::Set(d, 100.0) * absA, h));
  const V x = hn::IfThenElse(direct, two * absA, u);
  const V y = hn::IfThenElse(direct, u, two * absA);
  const V absT = x / y;
  const V absSOverA = hn::IfThenElse(direct, two, u) / hn::IfThenElse(direct, l, l * absA);
  const auto negative = hn::And(direct, h < zero);
  const V t = hn::IfThenElse(negative, hn::Neg(absT), absT);
  const V s = hn::IfThenElse(negative, hn::Neg(absSOverA), absSOverA);
  return {s * ar, hn::Neg(s) * ai, x * x / (l * (l + y)), t * absA};
}

/// ordinaryRotation() of all numbers: very large and very small ones are scaled by a power of two.
template <class D, class V = hn::Vec<D>>
HWY_NOINLINE Rotation<V> scaledRotation(D d, V ar, V ai, V absA, V h) {
  constexpr int LANES = hn::MaxLanes(d);
  struct alignas(64) {
    double ar[LANES], ai[LANES], absA[LANES], h[LANES], r[LANES], shift[LANES];
  } x;
  int exponents[LANES] = {};
  hn::Store(ar, d, x.ar);
  hn::Store(ai, d, x.ai);
  hn::Store(absA, d, x.absA);
  hn::Store(h, d, x.h);
  for (int l = 0; l < LANES; ++l) {
    x.r[l] = modulus(x.h[l], 2.0 * x.ar[l], 2.0 * x.ai[l]);
    // A lane of zeros does not rotate.
    if (isOrdinary(x.r[l]) || !std::isfinite(x.r[l]) || x.r[l] == 0.0) continue;
    exponents[l] = std::ilogb(x.r[l]);
    for (double* number : {&x.ar[l], &x.ai[l], &x.absA[l], &x.h[l], &x.r[l]}) {
      *number = std::scalbn(*number, -exponents[l]);
    }
  }
  Rotation<V> rotation = ordinaryRotation(d, hn::Load(d, x.ar), hn::Load(d, x.ai),
                                          hn::Load(d, x.absA), hn::Load(d, x.h), hn::Load(d, x.r));
  hn::Store(rotation.shift, d, x.shift);
  for (int l = 0; l < LANES; ++l) x.shift[l] = std::scalbn(x.shift[l], exponents[l]);
  rotation.shift = hn::Load(d, x.shift);
  return rotation;
}

/// The rotation that annihilates a, with modulus |a|, for h = d(q) − d(p); of use in the lanes
/// `rotating` only.
template <class D, class V = hn::Vec<D>>
HWY_INLINE Rotation<V> rotationFor(D d, V ar, V ai, V absA, V h, hn::Mask<D> rotating) {
  const V re = hn::Set(d, 2.0) * ar;
  const V im = hn::Set(d, 2.0) * ai;
  const V r = hn::Sqrt(h * h + re * re + im * im);
  if (hn::AllFalse(d, hn::AndNot(ordinary(d, r), rotating))) {
    return ordinaryRotation(d, ar, ai, absA, h, r);
  }
  return scaledRotation(d, ar, ai, absA, h);
}

/// g' = g − s · (h + τ̄ · g) and h' = h + s̄ · (g − τ · h), the rotation of two complex numbers,
/// with ρ = s · τ̄ multiplied out: what changes them stays small where the rotation is.
template <class V>
HWY_INLINE void rotate(V& gr, V& gi, V& hr, V& hi, const Rotation<V>& rotation) {
  const V sr = rotation.sr;
  const V si = rotation.si;
  const V ur = rotation.rho * gr + (sr * hr - si * hi);
  const V ui = rotation.rho * gi + (sr * hi + si * hr);
  const V wr = rotation.rho * hr - (sr * gr + si * gi);
  const V wi = rotation.rho * hi - (sr * gi - si * gr);
  gr = gr - ur;
  gi = gi - ui;
  hr = hr - wr;
  hi = hi - wi;
}

}  // namespace BF::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
