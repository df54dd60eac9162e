// Compiled once for each kind of processor; the best one is chosen at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "matrix/evd.cc"
#include "matrix/HighwayTargets.h"
// This one comes first.
#include <hwy/foreach_target.h>

#include "matrix/JacobiRotation-inl.h"
#include "matrix/evd.h"

#ifndef ZELK_MATRIX_EVD_ONCE
#define ZELK_MATRIX_EVD_ONCE

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "matrix/Modulus.h"
#include "matrix/SplitMatrix.h"

namespace BF {

/// A rotation of columns p and q, for the eigenvectors: s and ρ of Rotation.
struct PlaneRotation {
  std::size_t p, q;
  double sr, si, rho;
};

}  // namespace BF

#endif

HWY_BEFORE_NAMESPACE();
namespace BF::HWY_NAMESPACE {
namespace {

using D = hn::CappedTag<double, SplitMatrix::PADDING>;
using V = hn::Vec<D>;
constexpr D d;

/// Rotates two rows of n elements and what they are padded with.
HWY_INLINE void rotateRows(std::size_t n, double* gr, double* gi, double* hr, double* hi, double sr,
                           double si, double rho) {
  const Rotation<V> rotation = {hn::Set(d, sr), hn::Set(d, si), hn::Set(d, rho), hn::Zero(d)};
  for (std::size_t j = 0; j < n; j += hn::Lanes(d)) {
    V xr = hn::LoadU(d, gr + j);
    V xi = hn::LoadU(d, gi + j);
    V yr = hn::LoadU(d, hr + j);
    V yi = hn::LoadU(d, hi + j);
    rotate(xr, xi, yr, yi, rotation);
    hn::StoreU(xr, d, gr + j);
    hn::StoreU(xi, d, gi + j);
    hn::StoreU(yr, d, hr + j);
    hn::StoreU(yi, d, hi + j);
  }
}

/// Rotates rows p and q of the Hermitian work matrix and mirrors them into its columns.
HWY_INLINE void rotateHermitian(SplitMatrix& A, std::size_t n, const PlaneRotation& r) {
  const auto [p, q, sr, si, rho] = r;
  rotateRows(n, A.re(p), A.im(p), A.re(q), A.im(q), sr, -si, rho);
  A.re(p)[p] = A.im(p)[p] = A.re(p)[q] = A.im(p)[q] = 0.0;
  A.re(q)[p] = A.im(q)[p] = A.re(q)[q] = A.im(q)[q] = 0.0;
  for (std::size_t j = 0; j < n; ++j) {
    A.re(j)[p] = A.re(p)[j];
    A.im(j)[p] = -A.im(p)[j];
    A.re(j)[q] = A.re(q)[j];
    A.im(j)[q] = -A.im(q)[j];
  }
}

/// One sweep over all pairs p < q; z gathers the diagonal's changes, rotations what was done.
void sweepOnce(int sweep, double threshold, SplitMatrix& A, KernelVector<double>& diagonal,
               KernelVector<double>& z, std::vector<PlaneRotation>& rotations) {
  const hn::CappedTag<double, 1> one;
  const auto all = hn::FirstN(one, 1);
  const std::size_t n = diagonal.size();
  for (std::size_t p = 0; p + 1 < n; ++p) {
    for (std::size_t q = p + 1; q < n; ++q) {
      const double ar = A.re(p)[q];
      const double ai = A.im(p)[q];
      const double absA = modulus(ar, ai);
      const auto g = hn::Set(one, 100.0 * absA);
      const auto ignorable = hn::And(negligible(g, hn::Set(one, diagonal(p))),
                                     negligible(g, hn::Set(one, diagonal(q))));
      if (sweep >= 5 && hn::AllTrue(one, ignorable)) {
        A.re(p)[q] = A.im(p)[q] = A.re(q)[p] = 0.0;
        A.im(q)[p] = -0.0;
      } else if (absA > threshold) {
        const auto rotation =
            rotationFor(one, hn::Set(one, ar), hn::Set(one, ai), hn::Set(one, absA),
                        hn::Set(one, diagonal(q) - diagonal(p)), all);
        const double shift = hn::GetLane(rotation.shift);
        diagonal(p) -= shift;
        diagonal(q) += shift;
        z(p) -= shift;
        z(q) += shift;
        rotations.push_back(
            {p, q, hn::GetLane(rotation.sr), hn::GetLane(rotation.si), hn::GetLane(rotation.rho)});
        rotateHermitian(A, n, rotations.back());
      }
    }
  }
}

/// product, the identity, := the product of all rotations, beginning with the last: so every column
/// of V is computed apart from the others, and who needs one alone gets the same.
void multiply(const std::vector<PlaneRotation>& rotations, std::size_t n, SplitMatrix& product) {
  for (std::size_t i = rotations.size(); i-- > 0;) {
    const auto& [p, q, sr, si, rho] = rotations[i];
    rotateRows(n, product.re(p), product.im(p), product.re(q), product.im(q), -sr, si, rho);
  }
}

}  // namespace
}  // namespace BF::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace BF {

HWY_EXPORT(sweepOnce);
HWY_EXPORT(multiply);

namespace {

/// Σ |A(p, q)| over the strictly upper triangle, row by row.
double offDiagonalSum(SplitMatrix& A, std::size_t n) {
  double sum = 0.0;
  for (std::size_t p = 0; p + 1 < n; ++p) {
    for (std::size_t q = p + 1; q < n; ++q) sum += modulus(A.re(p)[q], A.im(p)[q]);
  }
  return sum;
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
  static std::vector<PlaneRotation> rotations;

  const std::size_t n = A.size1();
  d.resize(n, false);
  b.resize(n, false);
  z.resize(n, false);
  work.setToZeros(n, n);
  product.setToZeros(n, n);
  rotations.clear();
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
  for (int sweep = 0; sweep < JACOBI_MAX_SWEEPS; ++sweep) {
    const double sm = offDiagonalSum(work, n);
    if (sm == 0.0) {
      converged = true;
      break;
    }
    const double threshold = sweep <= 3 ? 0.2 * sm / static_cast<double>(n * n) : 0.0;
    HWY_DYNAMIC_DISPATCH(sweepOnce)(sweep, threshold, work, d, z, rotations);
    for (std::size_t i = 0; i < n; ++i) {
      b(i) += z(i);
      d(i) = b(i);
      z(i) = 0.0;
    }
  }
  HWY_DYNAMIC_DISPATCH(multiply)(rotations, n, product);

  V.resize(n, n, false);
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < n; ++j) V(i, j) = {product.re(i)[j], product.im(i)[j]};
  }
  if (!converged) sortIncreasing(d, V);
}

}  // namespace BF
#endif
