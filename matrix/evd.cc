#include "matrix/evd.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "matrix/JacobiRotation.h"
#include "matrix/Modulus.h"
#include "matrix/ProcessorClones.h"
#include "matrix/SplitMatrix.h"

namespace BF {

namespace {

using jacobi::MAX_SWEEPS;
using jacobi::negligible;
using jacobi::Rotation;

/// Rotates two vectors of n elements.
ZELK_INLINE void rotate(std::size_t n, double* __restrict gr, double* __restrict gi,
                        double* __restrict hr, double* __restrict hi, const Rotation& rotation) {
  for (std::size_t j = 0; j < n; ++j) jacobi::rotate(gr[j], gi[j], hr[j], hi[j], rotation, true);
}

/// Rotates rows p and q of the Hermitian work matrix and mirrors them into its columns.
ZELK_INLINE void rotateHermitian(SplitMatrix& A, std::size_t n, std::size_t p, std::size_t q,
                                 const Rotation& rotation) {
  const Rotation conjugate = {rotation.sr, -rotation.si, rotation.rho, rotation.shift};
  rotate(n, A.re(p), A.im(p), A.re(q), A.im(q), conjugate);
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

/// A rotation of columns p and q, for the eigenvectors.
struct Turn {
  std::size_t p, q;
  Rotation rotation;
};

/// One sweep over all pairs p < q; z gathers the diagonal's changes, turns the rotations.
ZELK_PROCESSOR_CLONES void sweepOnce(int sweep, double threshold, SplitMatrix& A,
                                     KernelVector<double>& d, KernelVector<double>& z,
                                     std::vector<Turn>& turns) {
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
        const Rotation rotation = jacobi::rotationFor(ar, ai, absA, d(q) - d(p));
        d(p) -= rotation.shift;
        d(q) += rotation.shift;
        z(p) -= rotation.shift;
        z(q) += rotation.shift;
        rotateHermitian(A, n, p, q, rotation);
        turns.push_back({p, q, rotation});
      }
    }
  }
}

/// V, the identity, := the product of all rotations, beginning with the last: so every column of V
/// is computed apart from the others, and who needs one alone gets the same.
ZELK_PROCESSOR_CLONES void multiply(const std::vector<Turn>& turns, std::size_t n, SplitMatrix& V) {
  for (std::size_t i = turns.size(); i-- > 0;) {
    const auto& [p, q, rotation] = turns[i];
    const Rotation row = {-rotation.sr, rotation.si, rotation.rho, rotation.shift};
    rotate(n, V.re(p), V.im(p), V.re(q), V.im(q), row);
  }
}

/// Increasing order by selection; the first of equal eigenvalues stays first.
void sortIncreasing(KernelVector<double>& d, KernelMatrix<double>& V) {
  const std::size_t n = d.size();
  for (std::size_t i = 0; i + 1 < n; ++i) {
    std::size_t smallest = i;
    for (std::size_t k = i + 1; k < n; ++k) {
      if (d(k) < d(smallest)) smallest = k;
    }
    if (smallest == i) continue;
    std::swap(d(i), d(smallest));
    for (std::size_t j = 0; j < n; ++j) std::swap(V(j, i), V(j, smallest));
  }
}

}  // namespace

template <>
void evd<double>(KernelMatrix<double>& A, KernelVector<double>& d, KernelMatrix<double>& V) {
  // b: the diagonal at the start of a sweep; z: what the sweep has added to it. Kept between calls,
  // like the work matrices (Hermitian with both triangles and a diagonal of zeros, and V's parts
  // apart) and the list of rotations.
  static KernelVector<double> b;
  static KernelVector<double> z;
  static SplitMatrix work;
  static SplitMatrix product;
  static std::vector<Turn> turns;

  const std::size_t n = A.size1();
  d.resize(n, false);
  b.resize(n, false);
  z.resize(n, false);
  work.setToZeros(n, n);
  product.setToZeros(n, n);
  turns.clear();
  for (std::size_t i = 0; i < n; ++i) {
    d(i) = b(i) = A(i, i).real();
    z(i) = 0.0;
    product.re(i)[i] = 1.0;
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
    turns.reserve(turns.size() + n * (n - 1) / 2);  // exceptions do not get out of a clone
    const double threshold = sweep <= 3 ? 0.2 * sm / static_cast<double>(n * n) : 0.0;
    sweepOnce(sweep, threshold, work, d, z, turns);
    for (std::size_t i = 0; i < n; ++i) {
      b(i) += z(i);
      d(i) = b(i);
      z(i) = 0.0;
    }
  }
  multiply(turns, n, product);

  V.resize(n, n, false);
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < n; ++j) V(i, j) = {product.re(i)[j], product.im(i)[j]};
  }
  if (!converged) sortIncreasing(d, V);
}

}  // namespace BF
