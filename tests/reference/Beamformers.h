#pragma once

#include <cmath>
#include <vector>

#include "tests/reference/Dense.h"

/// Closed-form beamformers, one bin at a time. A holds the transfer functions in its columns.
namespace reference {

/// Row n: conj(a_i) / (|a_i| · Σ_j |a_j|) for the elements a_i of column n, which are not tiny.
inline Dense delayAndSum(const Dense& A) {
  Dense W(A.columns, A.rows);
  for (int n = 0; n < A.columns; ++n) {
    Real sum = 0;
    for (int i = 0; i < A.rows; ++i) sum += std::abs(A(i, n));
    for (int i = 0; i < A.rows; ++i) W(n, i) = std::conj(A(i, n)) / (std::abs(A(i, n)) * sum);
  }
  return W;
}

/// Row n: a_nᴴ / ‖a_n‖²; zeros for a zero column.
inline Dense matchedFilters(const Dense& A) {
  Dense W(A.columns, A.rows);
  for (int n = 0; n < A.columns; ++n) {
    const Real power = squaredNorm(column(A, n));
    if (power > 0) setRow(W, n, 1 / power * adjoint(column(A, n)));
  }
  return W;
}

/// Row n: the shortest w with a_nᵀ · w = 1 and ‖Bᵀ · w‖ as small as possible, B being the other
/// columns of A. A has full rank.
///   No more sources than microphones: w solves Aᵀ · w = e_n, w = conj(A) · (Aᵀ · conj(A))⁻¹ · e_n.
///   More sources: with C = conj(B) · Bᵀ, by Lagrange, w = C⁻¹·conj(a) / (aᵀ · C⁻¹ · conj(a)).
inline Dense leastSquaresNulls(const Dense& A) {
  Dense W(A.columns, A.rows);
  for (int n = 0; n < A.columns; ++n) {
    Dense e(A.columns, 1);
    e(n, 0) = 1;
    Dense w = conjugated(A) * solve(transposed(A) * conjugated(A), e);
    if (A.columns > A.rows) {
      Dense B = A;
      for (int i = 0; i < A.rows; ++i) B(i, n) = 0;
      const Dense a = column(A, n);
      w = solve(conjugated(B) * transposed(B), conjugated(a));
      w = Complex(1) / (transposed(a) * w)(0, 0) * w;
    }
    setRow(W, n, transposed(w));
  }
  return W;
}

/// Row j of bin k: wᴴ · e^(jkπ) with w = Q·a / (aᴴ·Q·a), a being column j of A at unit norm and Q
/// the inverse of the noise correlation matrix with factor · ‖R‖ added to its diagonal.
inline Dense minimumVariance(const Dense& A, const Dense& R, Real factor, int k) {
  Dense W(A.columns, A.rows);
  const Dense regular = R + Complex(factor * std::sqrt(squaredNorm(R))) * identity(R.rows);
  for (int j = 0; j < A.columns; ++j) {
    const Dense a = Complex(1 / std::sqrt(squaredNorm(column(A, j)))) * column(A, j);
    const Dense q = solve(regular, a);
    const Dense w = Complex(1) / (adjoint(a) * q)(0, 0) * q;
    setRow(W, j, Complex(k % 2 == 0 ? 1 : -1) * adjoint(w));
  }
  return W;
}

/// The eigenvector of largest modulus of G, which has one; by squaring G over and over.
inline Dense dominantVector(Dense G) {
  for (int i = 0; i < 60; ++i) {
    G = G * G;
    G = Complex(1 / std::sqrt(squaredNorm(G))) * G;
  }
  int best = 0;
  for (int c = 1; c < G.columns; ++c) {
    if (squaredNorm(column(G, c)) > squaredNorm(column(G, best))) best = c;
  }
  return column(G, best);
}

/// vᴴ·A·v / vᴴ·B·v.
inline double quotient(const Dense& v, const Dense& A, const Dense& B) {
  const Dense vh = adjoint(v);
  return static_cast<double>((vh * A * v)(0, 0).real() / (vh * B * v)(0, 0).real());
}

}  // namespace reference
