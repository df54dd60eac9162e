// The singular value decomposition in the lanes of the processor's vectors. Files that include this
// are compiled once for each kind of processor.
#include <hwy/highway.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <utility>
#include <vector>

#include "matrix/Lanes-inl.h"
#include "matrix/svd.h"

// Included once more for each kind of processor, which a plain guard would prevent.
#if defined(ZELK_MATRIX_TALL_SVD_BATCH_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef ZELK_MATRIX_TALL_SVD_BATCH_INL_H
#undef ZELK_MATRIX_TALL_SVD_BATCH_INL_H
#else
#define ZELK_MATRIX_TALL_SVD_BATCH_INL_H
#endif

HWY_BEFORE_NAMESPACE();
namespace BF::HWY_NAMESPACE {
namespace {

// The decomposition of svd<double> for several matrices that are not wider than tall (m ≥ n) at
// once, one in each lane: operations, their order and so every bit are those of svd<double>, as are
// the names. Of U only the first columns are formed, each of which is computed apart from the rest.

/// A reflection I − v · vᴴ / β as in svd.cc.
struct Reflection {
  Real applied;  // 1, or 0 in lanes that skip it
  Real norm, phaseRe, phaseIm, beta;

  Mask mask() const { return applied.load() != hn::Zero(d); }
};

/// Scales x by (ar + i·ai) where it is to be.
HWY_INLINE void scale(Complex& x, V ar, V ai, Mask where) {
  const V re = x.re.load();
  const V im = x.im.load();
  assign(x, ar * re - ai * im, ar * im + ai * re, where);
}

/// (g, h) := (c·g + s·h, c·h − s·g).
HWY_INLINE void rotate(Real& g, Real& h, V c, V s, Mask where) {
  const V x = g.load();
  const V y = h.load();
  assign(g, c * x + s * y, where);
  assign(h, c * y - s * x, where);
}

/// Rotates rows x and y of count elements.
HWY_INLINE void rotateRows(Complex* x, Complex* y, int count, V c, V s, Mask where) {
  for (int j = 0; j < count; ++j) {
    rotate(x[j].re, y[j].re, c, s, where);
    rotate(x[j].im, y[j].im, c, s, where);
  }
}

/// c and s of the rotation that turns (f, h) into (z, 0); returns z. No matter in other lanes.
HWY_INLINE V planeRotation(V f, V h, V& c, V& s, Mask where) {
  // What other lanes hold can be so small that the modulus would take the long way.
  f = hn::IfThenElseZero(where, f);
  h = hn::IfThenElseZero(where, h);
  const V z = modulusOf(f, h);
  const Mask some = z != hn::Zero(d);
  c = hn::IfThenElse(some, f / z, hn::Set(d, 1.0));
  s = hn::IfThenElse(some, h / z, hn::Zero(d));
  return z;
}

/// c and s of the rotations of two neighbouring columns of V and of U.
struct RowRotations {
  Real cOfV, sOfV, cOfU, sOfU;
  Real active;  // 1, or 0 in lanes that skip them
};

/// The decompositions of up to LANES matrices.
class TallSvdBatch {
 public:
  /// Takes m × n matrices, of whose U the first `columns` ≥ n columns are to be formed. Lanes that
  /// are not loaded hold zeros, whose decomposition ends at once.
  void clear(int rowCount, int columnCount, int leftColumns) {
    m = rowCount;
    n = columnCount;
    columns = leftColumns;
    A.assign(static_cast<std::size_t>(m) * n, Complex{});
    Ut.assign(static_cast<std::size_t>(columns) * m, Complex{});
    Vt.assign(static_cast<std::size_t>(n) * n, Complex{});
    left.assign(n, Reflection{});
    right.assign(n, Reflection{});
    diagonal.assign(n, Real{});
    e.assign(n, Real{});
    factor.assign(m, Complex{});
    std::fill_n(unusable, LANES, false);
  }

  /// Lane l, cleared before, := matrix, or its plain transpose.
  void load(int l, const Matrix& matrix, bool transpose) {
    const std::complex<double>* z = matrix.data();
    for (int i = 0; i < matrix.getRowCount(); ++i) {
      for (int j = 0; j < matrix.getColumnCount(); ++j, ++z) {
        Complex& x = transpose ? a(j, i) : a(i, j);
        x.re.lanes[l] = z->real();
        x.im.lanes[l] = z->imag();
      }
    }
  }

  /// Every lane, an n × n matrix B, := R of choleskyFactor(B, R), in the same order.
  void factorise() {
    Real ordinary = {};
    ordinary.store(hn::Set(d, 1.0));
    for (int j = 0; j < n; ++j) {
      // Row j of R takes the place of row j of B.
      for (int i = 0; i < j; ++i) a(j, i) = Complex{};
      V pivot = hn::Zero(d);
      V pivotIm = hn::Zero(d);
      for (int i = j; i < n; ++i) {
        V re = hn::Zero(d);
        V im = hn::Zero(d);
        for (int k = 0; k < j; ++k) {
          const V xr = a(k, j).re.load();
          const V xi = hn::Neg(a(k, j).im.load());
          const V yr = a(k, i).re.load();
          const V yi = a(k, i).im.load();
          re = re + (xr * yr - xi * yi);
          im = im + (xr * yi + xi * yr);
        }
        re = a(j, i).re.load() - re;
        im = a(j, i).im.load() - im;
        if (i == j) {
          const Mask usual =
              hn::And(hn::And(re > hn::Set(d, 1e-279), re < hn::Set(d, 1e279)), im == hn::Zero(d));
          ordinary.store(hn::IfThenElseZero(usual, ordinary.load()));
          pivot = hn::Sqrt(re);
          pivotIm = im;
          a(j, i).re.store(pivot);
          a(j, i).im.store(im);
        } else {  // dividedByPivot()
          a(j, i).re.store((re + pivotIm * (im / pivot)) / pivot);
          a(j, i).im.store((im - pivotIm * (re / pivot)) / pivot);
        }
      }
    }
    for (int l = 0; l < LANES; ++l) unusable[l] = ordinary.lanes[l] == 0.0;
  }

  void decompose() {
    bidiagonalise();
    accumulateU();
    accumulateV();
    diagonalise();
    for (int l = 0; l < LANES; ++l) sortDecreasing(l);
    normalisePhases();
  }

  /// Lane l, which the lanes did not serve, := matrix.
  void replace(int l, const Matrix& matrix) {
    load(l, matrix, false);
    unusable[l] = false;
  }

  /// Whether lane l is to be decomposed by itself.
  bool isUnusable(int l) const { return unusable[l]; }

  /// Element (i, j) of U and V, and singular value i.
  const Complex& u(int i, int j) const { return Ut[static_cast<std::size_t>(j) * m + i]; }
  const Complex& v(int i, int j) const { return Vt[static_cast<std::size_t>(j) * n + i]; }
  const Real& value(int i) const { return diagonal[i]; }

 private:
  Complex& a(int i, int j) { return A[static_cast<std::size_t>(i) * n + j]; }
  Complex* ut(int i) { return Ut.data() + static_cast<std::size_t>(i) * m; }
  Complex* vt(int i) { return Vt.data() + static_cast<std::size_t>(i) * n; }

  // The reflection for x, count elements of the given stride; x becomes v.
  static void makeReflection(Complex* x, int count, std::ptrdiff_t stride, Reflection& reflection) {
    V squared = hn::Zero(d);
    for (int i = 0; i < count; ++i) {
      const V re = x[i * stride].re.load();
      const V im = x[i * stride].im.load();
      squared = squared + (re * re + im * im);
    }
    const V one = hn::Set(d, 1.0);
    const Mask applied = hn::Not(squared <= hn::Set(d, SVD_ZERO_SQUARED_NORM));
    const V norm = hn::IfThenElseZero(applied, hn::Sqrt(squared));
    const V re = x->re.load();
    const V im = x->im.load();
    const V leading = modulusOf(re, im);
    const Mask some = leading != hn::Zero(d);
    const V phaseRe = hn::IfThenElse(some, re / leading, one);
    const V phaseIm = hn::IfThenElseZero(some, im / leading);
    reflection.applied.store(hn::IfThenElseZero(applied, one));
    reflection.norm.store(norm);
    reflection.phaseRe.store(phaseRe);
    reflection.phaseIm.store(phaseIm);
    reflection.beta.store(norm * (norm + leading));
    assign(*x, phaseRe * (norm + leading), phaseIm * (norm + leading), applied);
  }

  void bidiagonalise() {
    for (int k = 0; k < n; ++k) {
      makeReflection(&a(k, k), m - k, n, left[k]);
      diagonal[k] = left[k].norm;
      reflectFromLeft(k);
      if (k + 1 == n) break;
      makeReflection(&a(k, k + 1), n - k - 1, 1, right[k + 1]);
      e[k + 1] = right[k + 1].norm;
      reflectFromRight(k);
    }
  }

  // x := x − v · (vᴴ · x) / β for a column x of count elements of the given stride, v having the
  // stride vStride; conjugate: with v̄ in place of v. factor holds −v / β.
  HWY_INLINE void reflectColumn(const Complex* v, std::ptrdiff_t vStride, bool conjugate,
                                Complex* x, std::ptrdiff_t stride, int count, Mask where) {
    V wr = hn::Zero(d);
    V wi = hn::Zero(d);
    for (int i = 0; i < count; ++i) {
      const V ar = v[i * vStride].re.load();
      const V ai = conjugate ? v[i * vStride].im.load() : hn::Neg(v[i * vStride].im.load());
      const V xr = x[i * stride].re.load();
      const V xi = x[i * stride].im.load();
      wr = wr + (ar * xr - ai * xi);
      wi = wi + (ar * xi + ai * xr);
    }
    for (int i = 0; i < count; ++i) {
      const V ar = factor[i].re.load();
      const V ai = factor[i].im.load();
      const V xr = x[i * stride].re.load();
      const V xi = x[i * stride].im.load();
      assign(x[i * stride], xr + (ar * wr - ai * wi), xi + (ar * wi + ai * wr), where);
    }
  }

  // factor := −v / β, or −v̄ / β.
  HWY_INLINE void setFactor(const Complex* v, std::ptrdiff_t stride, bool conjugate, int count,
                            V beta) {
    for (int i = 0; i < count; ++i) {
      const V im = v[i * stride].im.load();
      factor[i].re.store(hn::Neg(v[i * stride].re.load()) / beta);
      factor[i].im.store((conjugate ? im : hn::Neg(im)) / beta);
    }
  }

  void reflectFromLeft(int k) {
    const Reflection& h = left[k];
    const Mask applied = h.mask();
    const Complex* v = &a(k, k);
    setFactor(v, n, false, m - k, h.beta.load());
    for (int j = k + 1; j < n; ++j) {
      reflectColumn(v, n, false, &a(k, j), n, m - k, applied);
      scale(a(k, j), hn::Neg(h.phaseRe.load()), h.phaseIm.load(), applied);
    }
  }

  // Row x := (x − (x · v̄) · vᵀ / β), its first element times −conj(phase).
  void reflectFromRight(int k) {
    const Reflection& h = right[k + 1];
    const Mask applied = h.mask();
    const V beta = h.beta.load();
    const int count = n - k - 1;
    const Complex* v = &a(k, k + 1);
    for (int i = k + 1; i < m; ++i) {
      Complex* x = &a(i, k + 1);
      V tr = hn::Zero(d);
      V ti = hn::Zero(d);
      for (int j = 0; j < count; ++j) {
        const V xr = x[j].re.load();
        const V xi = x[j].im.load();
        const V vr = v[j].re.load();
        const V vi = v[j].im.load();
        tr = tr + (xr * vr + xi * vi);
        ti = ti + (xi * vr - xr * vi);
      }
      const V ar = hn::Neg(tr) / beta;
      const V ai = hn::Neg(ti) / beta;
      for (int j = 0; j < count; ++j) {
        const V vr = v[j].re.load();
        const V vi = v[j].im.load();
        assign(x[j], x[j].re.load() + (ar * vr - ai * vi), x[j].im.load() + (ar * vi + ai * vr),
               applied);
      }
      scale(x[0], hn::Neg(h.phaseRe.load()), h.phaseIm.load(), applied);
    }
  }

  void accumulateU() {
    for (int i = 0; i < columns; ++i) ut(i)[i].re.store(hn::Set(d, 1.0));
    for (int k = n; k-- > 0;) {
      const Reflection& h = left[k];
      const Mask applied = h.mask();
      scale(ut(k)[k], hn::Neg(h.phaseRe.load()), hn::Neg(h.phaseIm.load()), applied);
      const Complex* v = &a(k, k);
      setFactor(v, n, false, m - k, h.beta.load());
      for (int j = k; j < columns; ++j) {
        reflectColumn(v, n, false, ut(j) + k, 1, m - k, applied);
      }
    }
  }

  void accumulateV() {
    for (int i = 0; i < n; ++i) vt(i)[i].re.store(hn::Set(d, 1.0));
    for (int k = n; k-- > 1;) {
      const Reflection& h = right[k];
      const Mask applied = h.mask();
      scale(vt(k)[k], hn::Neg(h.phaseRe.load()), h.phaseIm.load(), applied);
      const Complex* v = &a(k - 1, k);
      setFactor(v, 1, true, n - k, h.beta.load());
      for (int j = k; j < n; ++j) reflectColumn(v, 1, true, vt(j) + k, 1, n - k, applied);
    }
  }

  // The lanes split and converge each in its own time: lane l has found all singular values beyond
  // ends[l].
  void diagonalise() {
    double tol[LANES];
    double zero[LANES];
    int exponents[LANES];
    int starts[LANES];
    int ends[LANES];
    for (int l = 0; l < LANES; ++l) {
      scaleLane(l, exponents[l], tol[l], zero[l]);
      starts[l] = ends[l] = unusable[l] ? 0 : n - 1;
    }
    while (true) {
      bool done = true;
      for (int l = 0; l < LANES; ++l) {
        int& k = ends[l];
        while (k > 0 && (starts[l] = splitPoint(l, k, tol[l], zero[l])) == k) --k;
        if (k <= 0) starts[l] = k;
        done = done && k <= 0;
      }
      if (done) break;
      sweep(starts, ends);
    }
    for (int k = 0; k < n; ++k) {
      const V value = diagonal[k].load();
      const Mask negative = value < hn::Zero(d);
      assign(diagonal[k], hn::Neg(value), negative);
      for (int j = 0; j < n; ++j) scale(vt(k)[j], hn::Set(d, -1.0), hn::Zero(d), negative);
    }
    for (int l = 0; l < LANES; ++l) {
      const double back = std::scalbn(1.0, exponents[l]);
      for (int i = 0; i < n; ++i) diagonal[i].lanes[l] *= back;
    }
  }

  // Scales d and e of lane l by a power of two.
  void scaleLane(int l, int& exponent, double& tol, double& zero) {
    double largest = 0.0;
    exponent = 0;
    tol = zero = 0.0;
    for (int i = 0; i < n; ++i) {
      const double sum = diagonal[i].lanes[l] + e[i].lanes[l];
      unusable[l] = unusable[l] || !std::isfinite(sum);
      largest = std::max(largest, sum);
    }
    if (unusable[l] || largest == 0.0) return;
    exponent = std::ilogb(largest);
    if (std::abs(exponent) > 1000) {
      unusable[l] = true;
      exponent = 0;
      return;
    }
    const double down = std::scalbn(1.0, -exponent);
    for (int i = 0; i < n; ++i) {
      diagonal[i].lanes[l] *= down;
      e[i].lanes[l] *= down;
    }
    tol = SVD_OFF_DIAGONAL_TOLERANCE * (largest * down);
    zero = SVD_ZERO_DIAGONAL_TOLERANCE * (largest * down);
  }

  int splitPoint(int lane, int k, double tol, double zero) {
    for (int l = k; l > 0; --l) {
      if (std::abs(e[l].lanes[lane]) <= tol) return l;
      if (std::abs(diagonal[l - 1].lanes[lane]) <= zero) {
        cancel(lane, l, k, tol);
        return l;
      }
    }
    return 0;
  }

  // Rotations of column l−1 of U with columns l … k, in one lane.
  void cancel(int lane, int l, int k, double tol) {
    double c = 0.0;
    double s = 1.0;
    for (int i = l; i <= k; ++i) {
      const double f = s * e[i].lanes[lane];
      e[i].lanes[lane] *= c;
      if (std::abs(f) <= tol) break;
      const double g = diagonal[i].lanes[lane];
      const double z = modulus(f, g);
      diagonal[i].lanes[lane] = z;
      c = g / z;
      s = -f / z;
      Real only = {};
      only.lanes[lane] = 1.0;
      const Mask where = only.load() != hn::Zero(d);
      rotateRows(ut(l - 1), ut(i), m, hn::Set(d, c), hn::Set(d, s), where);
    }
  }

  // One implicit QR step in every lane on its block starts[lane] … ends[lane].
  void sweep(const int* starts, const int* ends) {
    int first = n;
    int last = 0;
    Real start = {};
    Real end = {};
    Real leading = {};
    for (int lane = 0; lane < LANES; ++lane) {
      const int l = starts[lane];
      const int k = ends[lane];
      start.lanes[lane] = l;
      end.lanes[lane] = k;
      if (l == k) continue;
      first = std::min(first, l);
      last = std::max(last, k);
      leading.lanes[lane] = diagonal[l].lanes[lane];
    }
    V x = leading.load();
    V f = shiftedStarts(starts, ends).load();
    V c = hn::Set(d, 1.0);
    V s = c;
    // Rows i−1 and i are rotated one step later: what comes next of the chain does not wait for it.
    RowRotations late = {};
    for (int i = first + 1; i <= last; ++i) {
      const V number = hn::Set(d, static_cast<double>(i));
      const Mask active = hn::And(number > start.load(), number <= end.load());
      RowRotations rotations;
      rotations.active.store(hn::IfThenElseZero(active, hn::Set(d, 1.0)));
      V g = e[i].load();
      V y = diagonal[i].load();
      V h = s * g;
      g = g * c;
      V newC;
      V newS;
      assign(e[i - 1], planeRotation(f, h, newC, newS, active), active);
      V newF = x * newC + g * newS;
      g = g * newC - x * newS;
      h = y * newS;
      y = y * newC;
      rotations.cOfV.store(newC);
      rotations.sOfV.store(newS);
      assign(diagonal[i - 1], planeRotation(newF, h, newC, newS, active), active);
      newF = newC * g + newS * y;
      const V newX = newC * y - newS * g;
      rotations.cOfU.store(newC);
      rotations.sOfU.store(newS);
      c = hn::IfThenElse(active, newC, c);
      s = hn::IfThenElse(active, newS, s);
      f = hn::IfThenElse(active, newF, f);
      x = hn::IfThenElse(active, newX, x);
      if (i > first + 1) rotateNeighbours(i - 1, late);
      late = rotations;
    }
    if (last > first) rotateNeighbours(last, late);
    Real newE;
    Real newD;
    newE.store(f);
    newD.store(x);
    for (int lane = 0; lane < LANES; ++lane) {
      if (starts[lane] == ends[lane]) continue;
      e[starts[lane]].lanes[lane] = 0.0;
      e[ends[lane]].lanes[lane] = newE.lanes[lane];
      diagonal[ends[lane]].lanes[lane] = newD.lanes[lane];
    }
  }

  void rotateNeighbours(int i, const RowRotations& r) {
    const Mask active = r.active.load() != hn::Zero(d);
    rotateRows(vt(i - 1), vt(i), n, r.cOfV.load(), r.sOfV.load(), active);
    rotateRows(ut(i - 1), ut(i), m, r.cOfU.load(), r.sOfU.load(), active);
  }

  // svdShiftedStart() of every lane's block.
  Real shiftedStarts(const int* starts, const int* ends) {
    Real x = {}, y = {}, z = {}, g = {}, h = {};
    for (int lane = 0; lane < LANES; ++lane) {
      const int k = ends[lane];
      if (starts[lane] == k) continue;
      x.lanes[lane] = diagonal[starts[lane]].lanes[lane];
      y.lanes[lane] = diagonal[k - 1].lanes[lane];
      z.lanes[lane] = diagonal[k].lanes[lane];
      g.lanes[lane] = e[k - 1].lanes[lane];
      h.lanes[lane] = e[k].lanes[lane];
    }
    const V X = x.load();
    const V Y = y.load();
    const V Z = z.load();
    const V G = g.load();
    const V H = h.load();
    Real f;
    Real root = {};
    f.store(((Y - Z) * (Y + Z) + (G - H) * (G + H)) / (hn::Set(d, 2.0) * H * Y));
    for (int lane = 0; lane < LANES; ++lane) {
      if (starts[lane] == ends[lane]) continue;
      root.lanes[lane] = std::copysign(std::hypot(f.lanes[lane], 1.0), f.lanes[lane]);
    }
    Real result;
    result.store(((X - Z) * (X + Z) + H * (Y / (f.load() + root.load()) - H)) / X);
    return result;
  }

  void sortDecreasing(int lane) {
    for (int i = 0; i < n; ++i) {
      double best = -1.0;
      int at = i;
      for (int j = i; j < n; ++j) {
        if (diagonal[j].lanes[lane] > best) {
          best = diagonal[j].lanes[lane];
          at = j;
        }
      }
      if (at == i) continue;
      std::swap(diagonal[i].lanes[lane], diagonal[at].lanes[lane]);
      swapLane(lane, ut(i), ut(at), m);
      swapLane(lane, vt(i), vt(at), n);
    }
  }

  static void swapLane(int lane, Complex* x, Complex* y, int count) {
    for (int j = 0; j < count; ++j) {
      std::swap(x[j].re.lanes[lane], y[j].re.lanes[lane]);
      std::swap(x[j].im.lanes[lane], y[j].im.lanes[lane]);
    }
  }

  void normalisePhases() {
    for (int i = 0; i < columns; ++i) {
      const Complex reference = i < n ? vt(i)[0] : ut(i)[0];
      const V xr = reference.re.load();
      const V xi = reference.im.load();
      const V absX = modulusOf(xr, xi);
      const Mask some = hn::Not(absX == hn::Zero(d));
      const V re = xr / absX;
      const V im = hn::Neg(xi) / absX;
      for (int j = 0; j < m; ++j) scale(ut(i)[j], re, im, some);
      if (i >= n) continue;
      for (int j = 0; j < n; ++j) scale(vt(i)[j], re, im, some);
    }
  }

  int m = 0;
  int n = 0;
  int columns = 0;
  std::vector<Complex> A;
  std::vector<Complex> Ut;  // row i: column i of U
  std::vector<Complex> Vt;  // row i: column i of V
  std::vector<Reflection> left;
  std::vector<Reflection> right;
  std::vector<Real> diagonal;
  std::vector<Real> e;
  std::vector<Complex> factor;
  bool unusable[LANES] = {};
};

}  // namespace
}  // namespace BF::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
