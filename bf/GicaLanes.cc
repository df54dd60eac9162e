// Compiled once for each kind of processor; the best one is chosen at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "bf/GicaLanes.cc"
#include "matrix/HighwayTargets.h"
// This one comes first.
#include <hwy/foreach_target.h>

#include "bf/GicaLanes.h"
#include "matrix/Lanes-inl.h"
#include "matrix/PerThread.h"

#ifndef ZELK_BF_GICA_LANES_ONCE
#define ZELK_BF_GICA_LANES_ONCE

#include <complex>
#include <cstddef>

#endif

HWY_BEFORE_NAMESPACE();
namespace BF::HWY_NAMESPACE {
namespace {

// The step of GSS::adaptBin for one bin in each lane. Operations, their order and the names are
// those of GSS.cc.

/// A complex number of each lane, in registers.
struct Number {
  V re, im;
};

HWY_INLINE Number load(const Complex& z) { return {z.re.load(), z.im.load()}; }

HWY_INLINE void store(const Number& x, Complex& z) {
  z.re.store(x.re);
  z.im.store(x.im);
}

HWY_INLINE Number conjugate(const Number& z) { return {z.re, hn::Neg(z.im)}; }

/// sum + a · b.
HWY_INLINE Number plusProduct(const Number& sum, const Number& a, const Number& b) {
  return {sum.re + (a.re * b.re - a.im * b.im), sum.im + (a.re * b.im + a.im * b.re)};
}

HWY_INLINE Number zero() { return {hn::Zero(d), hn::Zero(d)}; }

/// sum + |z|², the modulus as moduliOf() gives it where `ordinary` stays true.
HWY_INLINE V plusSquaredModulus(V sum, const Number& z, Mask& ordinary) {
  const V absRe = hn::Abs(z.re);
  const V absIm = hn::Abs(z.im);
  const Mask larger = absRe > absIm;
  const V x = hn::IfThenElse(larger, absRe, absIm);
  const V y = hn::IfThenElse(larger, absIm, absRe);
  const V square = x * x + y * y;
  const V h = hn::Sqrt(square);
  const V modulus = h + (y * y - (h - x) * (x + h)) / (hn::Set(d, 2.0) * h);
  const Mask none = hn::And(x == hn::Zero(d), y == hn::Zero(d));
  const Mask plain = hn::And(square > hn::Set(d, 1e-280), square < hn::Set(d, 1e280));
  ordinary = hn::And(ordinary, hn::Or(none, plain));
  const V r = hn::IfThenElse(none, hn::Zero(d), modulus);
  return sum + r * r;
}

/// The operands of LANES bins and what the step computes of them.
class GicaBins {
 public:
  /// Bins first … first + LANES − 1.
  void adapt(const GicaStep& step, int first, std::vector<Matrix>& newW, std::vector<int>& alone) {
    load(step, first);
    Mask ordinary = hn::Zero(d) == hn::Zero(d);  // lanes that need no care
    constraintGradient();
    separationGradient();
    const V mu_lc = step.lcAdaptive ? constraintStep(step.mu, ordinary) : hn::Set(d, step.mu);
    const V mu_ss = step.ssAdaptive ? separationStep(step.mu_ss, ordinary) : hn::Set(d, step.mu_ss);
    descend(mu_ss, mu_lc, ordinary);

    std::complex<double>* rows[LANES];
    for (int l = 0; l < LANES; ++l) rows[l] = newW[static_cast<std::size_t>(first) + l].data();
    storeLanes(W.data(), N * M, rows);
    if (hn::AllTrue(d, ordinary)) return;
    Real usual;
    usual.store(hn::IfThenElseZero(ordinary, hn::Set(d, 1.0)));
    for (int l = 0; l < LANES; ++l) {
      if (usual.lanes[l] == 0.0) alone.push_back(first + l);
    }
  }

  void resize(int sources, int microphones) {
    N = sources;
    M = microphones;
    const std::size_t NM = static_cast<std::size_t>(N) * M;
    for (std::vector<Complex>* list : {&W, &A, &J_lc, &J_ss}) list->resize(NM);
    for (std::vector<Complex>* list : {&y, &f, &E_lc}) list->resize(N);
    E_ss.resize(static_cast<std::size_t>(N) * N);
    x.resize(M);
  }

 private:
  HWY_INLINE static Number at(const std::vector<Complex>& list, int i) {
    return HWY_NAMESPACE::load(list[static_cast<std::size_t>(i)]);
  }

  void load(const GicaStep& step, int first) {
    const std::complex<double>* ofW[LANES];
    const std::complex<double>* ofA[LANES];
    for (int l = 0; l < LANES; ++l) {
      ofW[l] = step.W[static_cast<std::size_t>(first) + l].data();
      ofA[l] = step.A[static_cast<std::size_t>(first) + l].data();
    }
    loadLanes(ofW, N * M, W.data());
    loadLanes(ofA, N * M, A.data());
    loadColumns(step.X, first, x.data());
    loadColumns(step.Y, first, y.data());
    loadColumns(step.F, first, f.data());
  }

  void constraintGradient() {
    for (int n = 0; n < N; ++n) {
      Number e = zero();
      for (int m = 0; m < M; ++m) e = plusProduct(e, at(W, n * M + m), at(A, m * N + n));
      e.re = e.re - hn::Set(d, 1.0);
      store(e, E_lc[n]);
      for (int m = 0; m < M; ++m) {
        store(plusProduct(zero(), e, conjugate(at(A, m * N + n))), J_lc[n * M + m]);
      }
    }
  }

  void separationGradient() {
    for (int i = 0; i < N; ++i) {
      for (int j = 0; j < N; ++j) {
        const Number p = plusProduct(zero(), at(f, i), conjugate(at(y, j)));
        store(i == j ? Number{p.re - p.re, p.im - p.im} : p, E_ss[i * N + j]);
      }
      for (int m = 0; m < M; ++m) {
        Number sum = zero();
        for (int j = 0; j < N; ++j) sum = plusProduct(sum, at(E_ss, i * N + j), at(W, j * M + m));
        store(sum, J_ss[i * M + m]);
      }
    }
  }

  V constraintStep(double mu, Mask& ordinary) {
    V g = hn::Zero(d);
    V e = hn::Zero(d);
    for (int i = 0; i < N * M; ++i) g = plusSquaredModulus(g, at(J_lc, i), ordinary);
    for (int n = 0; n < N; ++n) e = plusSquaredModulus(e, at(E_lc, n), ordinary);
    return stepOf(mu, e, g);
  }

  V separationStep(double mu_ss, Mask& ordinary) {
    V s = hn::Zero(d);
    V e = hn::Zero(d);
    const Number two = {hn::Set(d, 2.0), hn::Zero(d)};
    for (int i = 0; i < N; ++i) {
      Number q = zero();
      for (int j = 0; j < N; ++j) {
        const Number E = at(E_ss, i * N + j);
        const Number twice = {E.re * two.re - E.im * two.im, E.re * two.im + E.im * two.re};
        q = plusProduct(q, twice, at(f, j));
        e = plusSquaredModulus(e, E, ordinary);
      }
      for (int m = 0; m < M; ++m) {
        const Number Q = plusProduct(zero(), q, conjugate(at(x, m)));
        const Number J = at(J_ss, i * M + m);
        s = s + (J.re * Q.re + J.im * Q.im);
      }
    }
    return stepOf(mu_ss, e, s);
  }

  /// mu · (e / 2) / g, guarded.
  static V stepOf(double mu, V e, V g) {
    const V small = hn::Set(d, SMALL_NUMBER);
    const V divisor = hn::IfThenElse(small > g, g + small, g);
    return hn::Set(d, mu) * (hn::Set(d, 0.5) * e) / divisor;
  }

  /// W := (W − μ_ss · J_ss) − μ_lc · J_lc.
  void descend(V mu_ss, V mu_lc, Mask& ordinary) {
    const V none = hn::Zero(d);
    V check = none;
    for (int i = 0; i < N * M; ++i) {
      const Number w = at(W, i);
      const Number s = at(J_ss, i);
      const Number c = at(J_lc, i);
      const Number result = {(w.re - (s.re * mu_ss - s.im * none)) - (c.re * mu_lc - c.im * none),
                             (w.im - (s.re * none + s.im * mu_ss)) - (c.re * none + c.im * mu_lc)};
      check = check + ((result.re - result.re) + (result.im - result.im));
      store(result, W[i]);
    }
    ordinary = hn::And(ordinary, check == none);
  }

  int N = 0;
  int M = 0;
  std::vector<Complex> W, A, x, y, f, E_lc, J_lc, E_ss, J_ss;
};

void adaptAll(const GicaStep& step, int first, int end, std::vector<Matrix>& newW,
              std::vector<int>& alone) {
  auto& bins = perThread<GicaBins>();
  bins.resize(step.Y.getRowCount(), step.X.getRowCount());
  int k = first;
  for (; k + LANES <= end; k += LANES) bins.adapt(step, k, newW, alone);
  for (; k < end; ++k) alone.push_back(k);
}

}  // namespace
}  // namespace BF::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace BF {

HWY_EXPORT(adaptAll);

void adaptInLanes(const GicaStep& step, int first, int end, std::vector<Matrix>& newW,
                  std::vector<int>& alone) {
  HWY_DYNAMIC_DISPATCH(adaptAll)(step, first, end, newW, alone);
}

}  // namespace BF
#endif
