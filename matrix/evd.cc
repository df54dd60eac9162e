#include "matrix/evd.h"

#include <cmath>
#include <cstddef>
#include <utility>

#include "matrix/ProcessorClones.h"
#include "matrix/SplitMatrix.h"

namespace BF {

namespace {

constexpr int MAX_SWEEPS = 50;

/// The rotation that annihilates A(p, q): column p becomes c · v_p − s · v_q and column q becomes
/// s̄ · v_p + c · v_q, with c = 1 / √(|t|² + 1), s = t · c and τ = s / (1 + c).
struct Rotation {
  double sr, si;  ///< s
  double rho;     ///< s · τ̄, real
  double shift;   ///< t · A(p, q), real: d(p) falls and d(q) grows by it
};

/// a = A(p, q) with modulus |a|, h = d(q) − d(p). The rotation's parameter is
///   t = ā / h                         when |a| is negligible next to h,
///   t = (√(h² + 4·|a|²) − h) / (2·a)  otherwise.
/// With r = √(h² + 4·|a|²) and u = r + |h| the second is |t| = x / y, where (x, y) is (2·|a|, u)
/// for a positive h and (u, 2·|a|) for another: no difference that loses the digits of a small |a|.
/// As x² + y² = 2·r·u, |s| = x / √(2·r·u) and |τ| = x / (√(2·r·u) + y).
ZELK_INLINE Rotation rotationFor(double ar, double ai, double absA, double h) {
  double absT;  // with the sign of h in the first case, like |s| and |τ|
  double absS;
  double absTau;
  if (std::abs(h) + 100.0 * absA == std::abs(h)) {
    absT = absA / h;
    const double root = std::sqrt(absT * absT + 1.0);
    absS = absT / root;
    absTau = absT / (root + 1.0);
  } else {
    const double r = modulus(h, 2.0 * ar, 2.0 * ai);
    const double u = r + std::abs(h);
    const double root = std::sqrt(2.0 * r) * std::sqrt(u);
    const double x = h > 0.0 ? 2.0 * absA : u;
    const double y = h > 0.0 ? u : 2.0 * absA;
    absT = x / y;
    absS = x / root;
    absTau = x / (root + y);
  }
  const double phaseRe = ar / absA;
  const double phaseIm = -ai / absA;
  return {absS * phaseRe, absS * phaseIm, absS * absTau, absT * absA};
}

/// For every j < n: g' = g − s · (h + τ̄ · g) and h' = h + s̄ · (g − τ · h), the rotation of two
/// vectors g and h, with ρ = s · τ̄ multiplied out: what changes stays small next to g and h.
ZELK_INLINE void rotate(std::size_t n, double* __restrict gr, double* __restrict gi,
                        double* __restrict hr, double* __restrict hi, double sr, double si,
                        double rho) {
  for (std::size_t j = 0; j < n; ++j) {
    const double ur = rho * gr[j] + (sr * hr[j] - si * hi[j]);
    const double ui = rho * gi[j] + (sr * hi[j] + si * hr[j]);
    const double wr = rho * hr[j] - (sr * gr[j] + si * gi[j]);
    const double wi = rho * hi[j] - (sr * gi[j] - si * gr[j]);
    gr[j] -= ur;
    gi[j] -= ui;
    hr[j] -= wr;
    hi[j] -= wi;
  }
}

/// Rotates rows p and q of the Hermitian work matrix and mirrors them into its columns.
ZELK_INLINE void rotateHermitian(SplitMatrix& A, std::size_t n, std::size_t p, std::size_t q,
                                 const Rotation& rotation) {
  rotate(n, A.re(p), A.im(p), A.re(q), A.im(q), rotation.sr, -rotation.si, rotation.rho);
  A.re(p)[p] = A.im(p)[p] = A.re(p)[q] = A.im(p)[q] = 0.0;
  A.re(q)[p] = A.im(q)[p] = A.re(q)[q] = A.im(q)[q] = 0.0;
  for (std::size_t j = 0; j < n; ++j) {
    A.re(j)[p] = A.re(p)[j];
    A.im(j)[p] = -A.im(p)[j];
    A.re(j)[q] = A.re(q)[j];
    A.im(j)[q] = -A.im(q)[j];
  }
}

/// Σ |A(p, q)| over the strictly upper triangle, row by row.
double offDiagonalSum(SplitMatrix& A, std::size_t n) {
  double sum = 0.0;
  for (std::size_t p = 0; p + 1 < n; ++p) {
    for (std::size_t q = p + 1; q < n; ++q) sum += modulus(A.re(p)[q], A.im(p)[q]);
  }
  return sum;
}

ZELK_INLINE bool negligible(double value, double next) {
  return std::abs(next) + value == std::abs(next);
}

/// One sweep over all pairs p < q. Rows of Vt are the columns of V; z gathers the diagonal's
/// changes.
ZELK_PROCESSOR_CLONES void sweepOnce(int sweep, double threshold, SplitMatrix& A, SplitMatrix& Vt,
                                     KernelVector<double>& d, KernelVector<double>& z) {
  const std::size_t n = d.size();
  for (std::size_t p = 0; p + 1 < n; ++p) {
    for (std::size_t q = p + 1; q < n; ++q) {
      const double ar = A.re(p)[q];
      const double ai = A.im(p)[q];
      const double absA = modulus(ar, ai);
      const double g = 100.0 * absA;
      if (sweep >= 5 && negligible(g, d(p)) && negligible(g, d(q))) {
        A.re(p)[q] = A.im(p)[q] = A.re(q)[p] = 0.0;
        A.im(q)[p] = -0.0;
      } else if (absA > threshold) {
        const Rotation rotation = rotationFor(ar, ai, absA, d(q) - d(p));
        d(p) -= rotation.shift;
        d(q) += rotation.shift;
        z(p) -= rotation.shift;
        z(q) += rotation.shift;
        rotateHermitian(A, n, p, q, rotation);
        rotate(n, Vt.re(p), Vt.im(p), Vt.re(q), Vt.im(q), rotation.sr, rotation.si, rotation.rho);
      }
    }
  }
}

/// Increasing order by selection; the first of equal eigenvalues stays first.
void sortIncreasing(KernelVector<double>& d, SplitMatrix& Vt) {
  const std::size_t n = d.size();
  for (std::size_t i = 0; i + 1 < n; ++i) {
    std::size_t smallest = i;
    for (std::size_t k = i + 1; k < n; ++k) {
      if (d(k) < d(smallest)) smallest = k;
    }
    if (smallest == i) continue;
    std::swap(d(i), d(smallest));
    std::swap_ranges(Vt.re(i), Vt.re(i) + n, Vt.re(smallest));
    std::swap_ranges(Vt.im(i), Vt.im(i) + n, Vt.im(smallest));
  }
}

}  // namespace

template <>
void evd<double>(KernelMatrix<double>& A, KernelVector<double>& d, KernelMatrix<double>& V) {
  // b: the diagonal at the start of a sweep; z: what the sweep has added to it. Kept between calls,
  // like the work matrices: Hermitian with both triangles and a diagonal of zeros, and V
  // transposed.
  static KernelVector<double> b;
  static KernelVector<double> z;
  static SplitMatrix work;
  static SplitMatrix Vt;

  const std::size_t n = A.size1();
  d.resize(n, false);
  b.resize(n, false);
  z.resize(n, false);
  work.setToZeros(n, n);
  Vt.setToZeros(n, n);
  for (std::size_t i = 0; i < n; ++i) {
    d(i) = b(i) = A(i, i).real();
    z(i) = 0.0;
    Vt.re(i)[i] = 1.0;
    for (std::size_t j = i + 1; j < n; ++j) {
      work.re(i)[j] = work.re(j)[i] = A(i, j).real();
      work.im(i)[j] = A(i, j).imag();
      work.im(j)[i] = -A(i, j).imag();
    }
  }

  bool converged = false;
  for (int sweep = 0; sweep < MAX_SWEEPS; ++sweep) {
    const double sm = offDiagonalSum(work, n);
    if (sm == 0.0) {
      converged = true;
      break;
    }
    const double threshold = sweep <= 3 ? 0.2 * sm / static_cast<double>(n * n) : 0.0;
    sweepOnce(sweep, threshold, work, Vt, d, z);
    for (std::size_t i = 0; i < n; ++i) {
      b(i) += z(i);
      d(i) = b(i);
      z(i) = 0.0;
    }
  }
  if (!converged) sortIncreasing(d, Vt);

  V.resize(n, n, false);
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < n; ++j) V(i, j) = {Vt.re(j)[i], Vt.im(j)[i]};
  }
}

}  // namespace BF
