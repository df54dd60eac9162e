#pragma once

#include <cmath>
#include <vector>

#include "tests/reference/Dense.h"

/// Slow references of the adaptive engines. Every source of every bin has a state of its own; the
/// shared part is what happens to the states when the source list changes.
namespace reference {

struct SourceState {
  int id = 0;
  Dense a;  ///< the current transfer function, M × 1
  Dense w;  ///< the separation row, 1 × M
  Dense q;  ///< the quiescent row, 1 × M
  Dense P;  ///< projection, M × M
  Dense g;  ///< what adaptation subtracts from q, 1 × M
};

using Bin = std::vector<SourceState>;

class AdaptiveReference {
 public:
  virtual ~AdaptiveReference() = default;

  /// A[k]: the transfer functions of the new sources in their order. A source takes over the state
  /// of the first previous one with its id.
  void update(const std::vector<int>& ids, const std::vector<Dense>& A) {
    std::vector<Bin> next(A.size());
    for (std::size_t k = 0; k < A.size(); ++k) {
      for (std::size_t j = 0; j < ids.size(); ++j) {
        const Dense a = column(A[k], static_cast<int>(j));
        const SourceState* old = nullptr;
        if (k < bins.size()) {
          for (const SourceState& state : bins[k]) {
            if (state.id == ids[j] && old == nullptr) old = &state;
          }
        }
        next[k].push_back(old != nullptr ? kept(*old, a) : fresh(a));
        next[k].back().id = ids[j];
        next[k].back().a = a;
      }
    }
    bins = next;
  }

  /// One frame: column k of X is bin k's observation, column k of Y what the rows made of it.
  void adapt(const Dense& X, const Dense& Y) {
    for (std::size_t k = 0; k < bins.size(); ++k) {
      const Dense y = column(Y, static_cast<int>(k));
      adaptBin(column(X, static_cast<int>(k)), y.z, bins[k]);
    }
  }

  /// W of bin k.
  Dense rows(int k, int mics) const {
    Dense W(static_cast<int>(bins[k].size()), mics);
    for (int n = 0; n < W.rows; ++n) setRow(W, n, bins[k][n].w);
    return W;
  }

  /// Takes over rows computed elsewhere, so that rounding does not add up over many frames.
  void restartFrom(const std::vector<BF::Matrix>& W) {
    for (std::size_t k = 0; k < bins.size(); ++k) {
      for (std::size_t n = 0; n < bins[k].size(); ++n) {
        bins[k][n].w = fromMatrix(W[k].getRow(static_cast<int>(n)));
      }
    }
  }

  std::vector<Bin> bins;

 protected:
  virtual SourceState fresh(const Dense& a) const = 0;
  virtual SourceState kept(const SourceState& old, const Dense& /*a*/) const { return old; }
  virtual void adaptBin(const Dense& x, const std::vector<Complex>& y, Bin& bin) const = 0;

  static Real step(bool adaptive, Real mu, Real power, bool guarded) {
    if (!adaptive) return mu;
    return mu / (2 * power + (guarded ? EPS : 0));
  }

  static constexpr Real EPS = 1e-10;
};

/// w ← (w − μ·y·xᴴ)·P + q, P = I − a·aᴴ/s, q = aᴴ/s, s = aᴴ·a but at least 1e-6.
/// Adaptive: μ/(2‖x‖²), 1e-10 added to the denominator when ‖x‖² < 1e-10.
class LcmvReference : public AdaptiveReference {
 public:
  LcmvReference(bool isAdaptive, double step) : adaptive(isAdaptive), mu(step) {}

 private:
  SourceState fresh(const Dense& a) const override {
    const Real power = squaredNorm(a);
    const Complex q = 1 / (power < 1e-6 ? Real(1e-6) : power);
    SourceState state;
    state.q = state.w = q * adjoint(a);
    state.P = identity(a.rows) - q * (a * adjoint(a));
    return state;
  }

  void adaptBin(const Dense& x, const std::vector<Complex>& y, Bin& bin) const override {
    const Real p = squaredNorm(x);
    for (std::size_t n = 0; n < bin.size(); ++n) {
      const Real m = step(adaptive, mu, p, p < EPS);
      bin[n].w = (bin[n].w - m * y[n] * adjoint(x)) * bin[n].P + bin[n].q;
    }
  }

  bool adaptive;
  Real mu;
};

/// w ← q − g, g ← g + μ·y·zᴴ·B with z = B·x. The rows of B are an orthonormal basis of what is
/// orthogonal to a, so Bᴴ·B = P = I − a·aᴴ/aᴴ·a: zᴴ·B = xᴴ·P and ‖z‖² = xᴴ·P·x, whatever the basis.
/// Adaptive: μ/(2‖z‖²), 1e-10 added to the denominator when ‖z‖² < 1.
class GjReference : public AdaptiveReference {
 public:
  GjReference(bool isAdaptive, double step) : adaptive(isAdaptive), mu(step) {}

 private:
  SourceState fresh(const Dense& a) const override {
    SourceState state;
    state.q = state.w = Complex(1 / squaredNorm(a)) * adjoint(a);
    return kept(state, a);
  }

  SourceState kept(const SourceState& old, const Dense& a) const override {
    SourceState state = old;
    state.P = identity(a.rows) - Complex(1 / squaredNorm(a)) * (a * adjoint(a));
    // One microphone leaves nothing to block: rounding noise must not be adapted to.
    if (a.rows == 1) state.P = Dense(1, 1);
    state.g = Dense(1, a.rows);
    return state;
  }

  void adaptBin(const Dense& x, const std::vector<Complex>& y, Bin& bin) const override {
    for (std::size_t n = 0; n < bin.size(); ++n) {
      const Dense blocked = adjoint(x) * bin[n].P;
      const Real p = squaredNorm(blocked);
      bin[n].g = bin[n].g + step(adaptive, mu, p, p < 1) * y[n] * blocked;
      bin[n].w = bin[n].q - bin[n].g;
    }
  }

  bool adaptive;
  Real mu;
};

/// W ← W − μ_ss·J_ss − μ_lc·J_lc with
///   J_lc = E_lc·Aᴴ,  E_lc = diag(W·A − I),   J_ss = E_ss·W,  E_ss = φ(y)·yᴴ without its diagonal;
/// adaptive: μ_lc = μ·½‖E_lc‖²/‖J_lc‖² and μ_ss = μ·½‖E_ss‖²/Re⟨J_ss, 2·E_ss·φ(y)·xᴴ⟩, 1e-10 added
/// to a denominator below 1e-10.
class GicaReference : public AdaptiveReference {
 public:
  GicaReference(bool isLcAdaptive, double lcStep, bool isSsAdaptive, double ssStep,
                double tanhScale, int nonLinearity)
      : lcAdaptive(isLcAdaptive),
        ssAdaptive(isSsAdaptive),
        mu(lcStep),
        muSs(ssStep),
        scale(tanhScale),
        type(nonLinearity) {}

 private:
  SourceState fresh(const Dense& a) const override {
    const Real power = squaredNorm(a);
    SourceState state;
    state.w = Complex(power > 0 ? 1 / power : 0) * adjoint(a);
    return state;
  }

  Complex phi(Complex y) const {
    const Real r = std::abs(y);
    if (type == 1) return r < EPS ? Complex(0) : std::tanh(r * scale) * y / r;
    return type == 2 ? y * r * r : Complex(0);
  }

  static Real ratio(Real error, Real denominator) {
    return error / 2 / (denominator < EPS ? denominator + EPS : denominator);
  }

  void adaptBin(const Dense& x, const std::vector<Complex>& y, Bin& bin) const override {
    const int N = static_cast<int>(bin.size());
    Dense W(N, x.rows), E_lc(N, N), J_lc(N, x.rows), E_ss(N, N), f(N, 1);
    for (int n = 0; n < N; ++n) {
      setRow(W, n, bin[n].w);
      E_lc(n, n) = (bin[n].w * bin[n].a)(0, 0) - Complex(1);
      setRow(J_lc, n, E_lc(n, n) * adjoint(bin[n].a));
      f(n, 0) = phi(y[n]);
      for (int i = 0; i < N; ++i) {
        if (i != n) E_ss(n, i) = f(n, 0) * std::conj(y[i]);
      }
    }
    const Dense J_ss = E_ss * W;
    const Dense Q = Complex(2) * (E_ss * f * adjoint(x));
    Real inner = 0;
    for (std::size_t i = 0; i < Q.z.size(); ++i) inner += (std::conj(J_ss.z[i]) * Q.z[i]).real();
    const Real lc = lcAdaptive ? mu * ratio(squaredNorm(E_lc), squaredNorm(J_lc)) : mu;
    const Real ss = ssAdaptive ? muSs * ratio(squaredNorm(E_ss), inner) : muSs;
    const Dense next = W - Complex(ss) * J_ss - Complex(lc) * J_lc;
    for (int n = 0; n < N; ++n) bin[n].w = transposed(column(transposed(next), n));
  }

  bool lcAdaptive;
  bool ssAdaptive;
  Real mu;
  Real muSs;
  Real scale;
  int type;
};

}  // namespace reference
