#include "matrix/svd.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

#include "matrix/Modulus.h"
#include "matrix/ProcessorClones.h"
#include "matrix/SplitMatrix.h"

namespace BF {

namespace {

/// A reflection H = I − v · vᴴ / β that turns a vector x into −phase · ‖x‖ times the first unit
/// vector. v is x with its first element replaced by phase · (‖x‖ + |x₀|), where phase = x₀ / |x₀|;
/// β = ‖x‖ · (‖x‖ + |x₀|).
struct Reflection {
  bool skipped = true;
  double norm = 0.0;
  double phaseRe = 1.0;
  double phaseIm = 0.0;
  double beta = 1.0;
};

/// The reflection for x = (re, im), count elements of the given stride; x becomes v.
Reflection makeReflection(double* re, double* im, std::size_t count, std::size_t stride) {
  Reflection reflection;
  double squared = 0.0;
  for (std::size_t i = 0; i < count; ++i) {
    const double xr = re[i * stride];
    const double xi = im[i * stride];
    squared += xr * xr + xi * xi;
  }
  if (squared <= SVD_ZERO_SQUARED_NORM) return reflection;

  reflection.skipped = false;
  reflection.norm = std::sqrt(squared);
  const double leading = modulus(re[0], im[0]);
  if (leading != 0.0) {
    reflection.phaseRe = re[0] / leading;
    reflection.phaseIm = im[0] / leading;
  }
  reflection.beta = reflection.norm * (reflection.norm + leading);
  re[0] = reflection.phaseRe * (reflection.norm + leading);
  im[0] = reflection.phaseIm * (reflection.norm + leading);
  return reflection;
}

/// y += (ar + i·ai) · x over count elements.
void addMultiple(std::size_t count, double ar, double ai, const double* __restrict xr,
                 const double* __restrict xi, double* __restrict yr, double* __restrict yi) {
  for (std::size_t j = 0; j < count; ++j) {
    yr[j] += ar * xr[j] - ai * xi[j];
    yi[j] += ar * xi[j] + ai * xr[j];
  }
}

/// x := (ar + i·ai) · x over count elements.
void scale(std::size_t count, double ar, double ai, double* __restrict xr, double* __restrict xi) {
  for (std::size_t j = 0; j < count; ++j) {
    const double re = ar * xr[j] - ai * xi[j];
    xi[j] = ar * xi[j] + ai * xr[j];
    xr[j] = re;
  }
}

/// (g, h) := (c·g + s·h, c·h − s·g) over count elements.
void rotate(std::size_t count, double c, double s, double* __restrict g, double* __restrict h) {
  for (std::size_t j = 0; j < count; ++j) {
    const double x = g[j];
    const double y = h[j];
    g[j] = c * x + s * y;
    h[j] = c * y - s * x;
  }
}

/// The decomposition of a matrix that is not wider than tall (m ≥ n).
class TallSvd {
 public:
  explicit TallSvd(const KernelMatrix<double>& matrix, bool conjugateTranspose)
      : m(conjugateTranspose ? matrix.size2() : matrix.size1()),
        n(conjugateTranspose ? matrix.size1() : matrix.size2()),
        A(m, n),
        Ut(m, m),
        Vt(n, n),
        left(n),
        right(n),
        d(n, 0.0),
        e(n, 0.0),
        wr(m, 0.0),
        wi(m, 0.0),
        work(m, m) {
    for (std::size_t i = 0; i < matrix.size1(); ++i) {
      for (std::size_t j = 0; j < matrix.size2(); ++j) {
        const std::complex<double> z = matrix(i, j);
        if (conjugateTranspose) {
          A.re(j)[i] = z.real();
          A.im(j)[i] = -z.imag();
        } else {
          A.re(i)[j] = z.real();
          A.im(i)[j] = z.imag();
        }
      }
    }
  }

  void decompose() {
    bidiagonalise();
    accumulateU();
    accumulateV();
    diagonalise();
    sortDecreasing();
    normalisePhases();
  }

  /// Singular value i < n.
  double value(std::size_t i) const { return d[i]; }

  /// Copies the left (right) singular vectors into the columns of a matrix.
  void copyU(KernelMatrix<double>& U) { copyTransposed(Ut, m, U); }
  void copyV(KernelMatrix<double>& V) { copyTransposed(Vt, n, V); }

 private:
  // A = U · B · Vᴴ with B upper bidiagonal, real and non-negative: d(k) on the diagonal, e(k)
  // above d(k). Each reflection vector stays where the elements were that it annihilated.
  void bidiagonalise() {
    for (std::size_t k = 0; k < n; ++k) {
      left[k] = makeReflection(A.re(k) + k, A.im(k) + k, m - k, A.stride());
      d[k] = left[k].norm;
      if (!left[k].skipped) reflectFromLeft(k);
      if (k + 1 == n) break;
      right[k + 1] = makeReflection(A.re(k) + k + 1, A.im(k) + k + 1, n - k - 1, 1);
      e[k + 1] = right[k + 1].norm;
      if (!right[k + 1].skipped) reflectFromRight(k);
    }
  }

  // Columns k+1 … of A := −conj(phase) on row k · (A − v · (vᴴ · A) / β), v standing in column k.
  void reflectFromLeft(std::size_t k) {
    const Reflection& h = left[k];
    const std::size_t first = k + 1;
    const std::size_t count = n - first;
    std::fill_n(wr.begin(), count, 0.0);
    std::fill_n(wi.begin(), count, 0.0);
    for (std::size_t i = k; i < m; ++i) {
      addMultiple(count, A.re(i)[k], -A.im(i)[k], A.re(i) + first, A.im(i) + first, wr.data(),
                  wi.data());
    }
    for (std::size_t i = k; i < m; ++i) {
      addMultiple(count, -A.re(i)[k] / h.beta, -A.im(i)[k] / h.beta, wr.data(), wi.data(),
                  A.re(i) + first, A.im(i) + first);
    }
    scale(count, -h.phaseRe, h.phaseIm, A.re(k) + first, A.im(k) + first);
  }

  // Rows k+1 … of A := (A − (A · v̄) · vᵀ / β) · −conj(phase) on column k+1, v standing in row k.
  void reflectFromRight(std::size_t k) {
    const Reflection& h = right[k + 1];
    const std::size_t first = k + 1;
    const std::size_t count = n - first;
    const double* vr = A.re(k) + first;
    const double* vi = A.im(k) + first;
    for (std::size_t i = k + 1; i < m; ++i) {
      double* ar = A.re(i) + first;
      double* ai = A.im(i) + first;
      double tr = 0.0;
      double ti = 0.0;
      for (std::size_t j = 0; j < count; ++j) {
        tr += ar[j] * vr[j] + ai[j] * vi[j];
        ti += ai[j] * vr[j] - ar[j] * vi[j];
      }
      addMultiple(count, -tr / h.beta, -ti / h.beta, vr, vi, ar, ai);
      scale(1, -h.phaseRe, h.phaseIm, ar, ai);
    }
  }

  // U = Π H_k · diag(−phase_k at k), built from the last factor to the first, so that factor k
  // meets only rows and columns k … of what follows it. w = vᴴ · U; U := U − v · w / β.
  void accumulateU() {
    SplitMatrix& U = work;
    U.setToZeros(m, m);
    for (std::size_t i = 0; i < m; ++i) U.re(i)[i] = 1.0;
    for (std::size_t k = n; k-- > 0;) {
      const Reflection& h = left[k];
      if (h.skipped) continue;
      scale(1, -h.phaseRe, -h.phaseIm, U.re(k) + k, U.im(k) + k);
      const std::size_t count = m - k;
      std::fill_n(wr.begin(), count, 0.0);
      std::fill_n(wi.begin(), count, 0.0);
      for (std::size_t i = k; i < m; ++i) {
        addMultiple(count, A.re(i)[k], -A.im(i)[k], U.re(i) + k, U.im(i) + k, wr.data(), wi.data());
      }
      for (std::size_t i = k; i < m; ++i) {
        addMultiple(count, -A.re(i)[k] / h.beta, -A.im(i)[k] / h.beta, wr.data(), wi.data(),
                    U.re(i) + k, U.im(i) + k);
      }
    }
    transposeInto(U, m, Ut);
  }

  // V = Π H_k · diag(−conj(phase_k) at k) with H_k = I − v̄ · vᵀ / β, v standing in row k−1 of A;
  // built like U. w = vᵀ · V; V := V − v̄ · w / β.
  void accumulateV() {
    SplitMatrix& V = work;
    V.setToZeros(n, n);
    for (std::size_t i = 0; i < n; ++i) V.re(i)[i] = 1.0;
    for (std::size_t k = n; k-- > 1;) {
      const Reflection& h = right[k];
      if (h.skipped) continue;
      scale(1, -h.phaseRe, h.phaseIm, V.re(k) + k, V.im(k) + k);
      const double* vr = A.re(k - 1);
      const double* vi = A.im(k - 1);
      const std::size_t count = n - k;
      std::fill_n(wr.begin(), count, 0.0);
      std::fill_n(wi.begin(), count, 0.0);
      for (std::size_t i = k; i < n; ++i) {
        addMultiple(count, vr[i], vi[i], V.re(i) + k, V.im(i) + k, wr.data(), wi.data());
      }
      for (std::size_t i = k; i < n; ++i) {
        addMultiple(count, -vr[i] / h.beta, vi[i] / h.beta, wr.data(), wi.data(), V.re(i) + k,
                    V.im(i) + k);
      }
    }
    transposeInto(V, n, Vt);
  }

  // Diagonalises the bidiagonal from the last index upward. d and e are scaled by a power of two
  // first, which is exact, so that products of them neither overflow nor underflow.
  void diagonalise() {
    double largest = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
      if (!std::isfinite(d[i]) || !std::isfinite(e[i])) return;
      largest = std::max(largest, d[i] + e[i]);
    }
    if (largest == 0.0) return;

    const int exponent = std::ilogb(largest);
    for (std::size_t i = 0; i < n; ++i) {
      d[i] = std::scalbn(d[i], -exponent);
      e[i] = std::scalbn(e[i], -exponent);
    }
    const double tol = SVD_OFF_DIAGONAL_TOLERANCE * std::scalbn(largest, -exponent);
    const double zero = SVD_ZERO_DIAGONAL_TOLERANCE * std::scalbn(largest, -exponent);
    for (std::size_t k = n; k-- > 0;) {
      std::size_t l = splitPoint(k, tol, zero);
      while (l != k) {
        sweep(l, k);
        l = splitPoint(k, tol, zero);
      }
      if (d[k] < 0.0) {
        d[k] = -d[k];
        scale(n, -1.0, 0.0, Vt.re(k), Vt.im(k));
      }
    }
    for (std::size_t i = 0; i < n; ++i) d[i] = std::scalbn(d[i], exponent);
  }

  // The first index of the unsplit block that ends at k: e(l) is negligible (e(0) is 0) or has been
  // rotated away because d(l−1) is zero.
  std::size_t splitPoint(std::size_t k, double tol, double zero) {
    for (std::size_t l = k; l > 0; --l) {
      if (std::abs(e[l]) <= tol) return l;
      if (std::abs(d[l - 1]) <= zero) {
        cancel(l, k, tol);
        return l;
      }
    }
    return 0;
  }

  // d(l−1) is zero: rotations of row l−1 with rows l … k move e(l) to the right until it is gone.
  void cancel(std::size_t l, std::size_t k, double tol) {
    double c = 0.0;
    double s = 1.0;
    for (std::size_t i = l; i <= k; ++i) {
      const double f = s * e[i];
      e[i] *= c;
      if (std::abs(f) <= tol) break;
      const double g = d[i];
      d[i] = modulus(f, g);
      c = g / d[i];
      s = -f / d[i];
      rotateColumns(Ut, m, l - 1, i, c, s);
    }
  }

  // One implicit QR step on the block l … k.
  void sweep(std::size_t l, std::size_t k) {
    double x = d[l];
    double f = svdShiftedStart(d[l], d[k - 1], d[k], e[k - 1], e[k]);
    double c = 1.0;
    double s = 1.0;
    for (std::size_t i = l + 1; i <= k; ++i) {
      double g = e[i];
      double y = d[i];
      double h = s * g;
      g *= c;
      e[i - 1] = planeRotation(f, h, c, s);
      f = x * c + g * s;
      g = g * c - x * s;
      h = y * s;
      y *= c;
      rotateColumns(Vt, n, i - 1, i, c, s);
      d[i - 1] = planeRotation(f, h, c, s);
      f = c * g + s * y;
      x = c * y - s * g;
      rotateColumns(Ut, m, i - 1, i, c, s);
    }
    e[l] = 0.0;
    e[k] = f;
    d[k] = x;
  }

  // c and s of the rotation that turns (f, h) into (z, 0); returns z. Any rotation serves for (0,
  // 0).
  static double planeRotation(double f, double h, double& c, double& s) {
    const double z = modulus(f, h);
    c = z != 0.0 ? f / z : 1.0;
    s = z != 0.0 ? h / z : 0.0;
    return z;
  }

  static void rotateColumns(SplitMatrix& transposed, std::size_t count, std::size_t i,
                            std::size_t j, double c, double s) {
    rotate(count, c, s, transposed.re(i), transposed.re(j));
    rotate(count, c, s, transposed.im(i), transposed.im(j));
  }

  // Decreasing order by selection; the first of equal values stays first.
  void sortDecreasing() {
    for (std::size_t i = 0; i < n; ++i) {
      double best = -1.0;
      std::size_t at = i;
      for (std::size_t j = i; j < n; ++j) {
        if (d[j] > best) {
          best = d[j];
          at = j;
        }
      }
      if (at == i) continue;
      std::swap(d[i], d[at]);
      swapRows(Ut, m, i, at);
      swapRows(Vt, n, i, at);
    }
  }

  static void swapRows(SplitMatrix& matrix, std::size_t count, std::size_t i, std::size_t j) {
    std::swap_ranges(matrix.re(i), matrix.re(i) + count, matrix.re(j));
    std::swap_ranges(matrix.im(i), matrix.im(i) + count, matrix.im(j));
  }

  // Makes the first element x of each right singular vector, or of a left one that has no partner,
  // real and non-negative: the column (and its partner, so that the product stays) times x̄ / |x|.
  void normalisePhases() {
    for (std::size_t i = 0; i < m; ++i) {
      const double xr = i < n ? Vt.re(i)[0] : Ut.re(i)[0];
      const double xi = i < n ? Vt.im(i)[0] : Ut.im(i)[0];
      const double absX = modulus(xr, xi);
      if (absX == 0.0) continue;
      scale(m, xr / absX, -xi / absX, Ut.re(i), Ut.im(i));
      if (i < n) scale(n, xr / absX, -xi / absX, Vt.re(i), Vt.im(i));
    }
  }

  static void transposeInto(SplitMatrix& from, std::size_t count, SplitMatrix& to) {
    for (std::size_t i = 0; i < count; ++i) {
      for (std::size_t j = 0; j < count; ++j) {
        to.re(j)[i] = from.re(i)[j];
        to.im(j)[i] = from.im(i)[j];
      }
    }
  }

  static void copyTransposed(SplitMatrix& from, std::size_t count, KernelMatrix<double>& to) {
    to.resize(count, count, false);
    for (std::size_t i = 0; i < count; ++i) {
      for (std::size_t j = 0; j < count; ++j) to(i, j) = {from.re(j)[i], from.im(j)[i]};
    }
  }

  std::size_t m;
  std::size_t n;
  SplitMatrix A;
  SplitMatrix Ut;  // row i: column i of U
  SplitMatrix Vt;  // row i: column i of V
  std::vector<Reflection> left;
  std::vector<Reflection> right;
  std::vector<double> d;
  std::vector<double> e;
  std::vector<double> wr;  // scratch row w
  std::vector<double> wi;
  SplitMatrix work;  // U, then V, until transposed
};

/// Everything that decompose() calls becomes part of each clone. It allocates nothing: exceptions
/// do not get out of a clone.
ZELK_PROCESSOR_CLONES __attribute__((flatten)) void decompose(TallSvd& svd) { svd.decompose(); }

}  // namespace

template <>
void svd<double>(KernelMatrix<double>& A, KernelVector<double>& s, KernelMatrix<double>& U,
                 KernelMatrix<double>& V) {
  const std::size_t m = A.size1();
  const std::size_t n = A.size2();
  // A wide matrix is decomposed through its conjugate transpose, Aᴴ = V · diag(s) · Uᴴ.
  const bool wide = m < n;
  TallSvd svd(A, wide);
  decompose(svd);

  svd.copyU(wide ? V : U);
  svd.copyV(wide ? U : V);
  s.resize(std::max(m, n), false);
  for (std::size_t i = 0; i < s.size(); ++i) s(i) = i < std::min(m, n) ? svd.value(i) : 0.0;
}

}  // namespace BF
