#pragma once

#include <cmath>
#include <complex>
#include <utility>
#include <vector>

#include "matrix/Matrix.h"

/// Slow, straightforward matrix algebra in extended precision, for oracles only. Nothing here calls
/// the library's own arithmetic.
namespace reference {

using Real = long double;
using Complex = std::complex<Real>;

struct Dense {
  Dense() = default;
  Dense(int rowCount, int columnCount)
      : rows(rowCount), columns(columnCount), z(static_cast<std::size_t>(rowCount) * columnCount) {}

  Complex& operator()(int r, int c) { return z[static_cast<std::size_t>(r) * columns + c]; }
  const Complex& operator()(int r, int c) const {
    return z[static_cast<std::size_t>(r) * columns + c];
  }

  int rows = 0;
  int columns = 0;
  std::vector<Complex> z;
};

inline Dense fromMatrix(const BF::Matrix& matrix) {
  Dense result(matrix.getRowCount(), matrix.getColumnCount());
  for (int r = 0; r < result.rows; ++r) {
    for (int c = 0; c < result.columns; ++c) result(r, c) = Complex(matrix.getElementAt(r, c));
  }
  return result;
}

inline BF::Matrix toMatrix(const Dense& dense) {
  BF::Matrix result(dense.rows, dense.columns);
  for (int r = 0; r < dense.rows; ++r) {
    for (int c = 0; c < dense.columns; ++c) {
      result.setElementAt(r, c, static_cast<double>(dense(r, c).real()),
                          static_cast<double>(dense(r, c).imag()));
    }
  }
  return result;
}

inline Dense identity(int n) {
  Dense result(n, n);
  for (int i = 0; i < n; ++i) result(i, i) = 1;
  return result;
}

/// rowCount × columnCount with values[i] at (i, i).
template <class Values>
Dense diagonal(int rowCount, int columnCount, const Values& values) {
  Dense result(rowCount, columnCount);
  for (int i = 0; i < std::min(rowCount, columnCount); ++i) result(i, i) = values[i];
  return result;
}

inline Dense operator*(const Dense& a, const Dense& b) {
  Dense result(a.rows, b.columns);
  for (int i = 0; i < a.rows; ++i) {
    for (int k = 0; k < a.columns; ++k) {
      const Complex s = a(i, k);
      for (int j = 0; j < b.columns; ++j) {
        const Complex t = b(k, j);
        result(i, j) += Complex(s.real() * t.real() - s.imag() * t.imag(),
                                s.real() * t.imag() + s.imag() * t.real());
      }
    }
  }
  return result;
}

inline Dense operator*(Complex s, Dense a) {
  for (Complex& z : a.z) z *= s;
  return a;
}

inline Dense operator+(Dense a, const Dense& b) {
  for (std::size_t i = 0; i < a.z.size(); ++i) a.z[i] += b.z[i];
  return a;
}

inline Dense operator-(const Dense& a, const Dense& b) { return a + Complex(-1) * b; }

inline Dense transposed(const Dense& a) {
  Dense result(a.columns, a.rows);
  for (int r = 0; r < a.rows; ++r) {
    for (int c = 0; c < a.columns; ++c) result(c, r) = a(r, c);
  }
  return result;
}

inline Dense conjugated(Dense a) {
  for (Complex& z : a.z) z = std::conj(z);
  return a;
}

inline Dense adjoint(const Dense& a) { return conjugated(transposed(a)); }

inline Dense column(const Dense& a, int c) {
  Dense result(a.rows, 1);
  for (int r = 0; r < a.rows; ++r) result(r, 0) = a(r, c);
  return result;
}

inline void setRow(Dense& a, int r, const Dense& row) {
  for (int c = 0; c < a.columns; ++c) a(r, c) = row(0, c);
}

/// Σ |z|².
inline Real squaredNorm(const Dense& a) {
  Real sum = 0;
  for (const Complex& z : a.z) sum += std::norm(z);
  return sum;
}

inline double frobenius(const Dense& a) { return static_cast<double>(std::sqrt(squaredNorm(a))); }
inline double frobenius(const BF::Matrix& a) { return frobenius(fromMatrix(a)); }

/// The solution X of A · X = B by elimination with row pivoting; A is square and regular.
inline Dense solve(Dense A, Dense B) {
  const int n = A.rows;
  for (int i = 0; i < n; ++i) {
    int pivot = i;
    for (int r = i + 1; r < n; ++r) {
      if (std::abs(A(r, i)) > std::abs(A(pivot, i))) pivot = r;
    }
    for (int c = 0; c < n; ++c) std::swap(A(i, c), A(pivot, c));
    for (int c = 0; c < B.columns; ++c) std::swap(B(i, c), B(pivot, c));
    for (int r = 0; r < n; ++r) {
      if (r == i) continue;
      const Complex f = A(r, i) / A(i, i);
      for (int c = i; c < n; ++c) A(r, c) -= f * A(i, c);
      for (int c = 0; c < B.columns; ++c) B(r, c) -= f * B(i, c);
    }
  }
  for (int i = 0; i < n; ++i) {
    for (int c = 0; c < B.columns; ++c) B(i, c) /= A(i, i);
  }
  return B;
}

/// Pseudo-inverse of a matrix of full rank, by the normal equations: (Aᴴ·A)⁻¹ · Aᴴ when it is not
/// wider than tall, Aᴴ · (A·Aᴴ)⁻¹ otherwise.
inline Dense fullRankPseudoInverse(const Dense& A) {
  const Dense Ah = adjoint(A);
  if (A.rows >= A.columns) return solve(Ah * A, Ah);
  return adjoint(solve(A * Ah, A));
}

/// Makes the columns orthonormal (Gram–Schmidt, twice over so that rounding does not matter).
inline Dense orthonormalised(Dense Q) {
  for (int j = 0; j < Q.columns; ++j) {
    for (int pass = 0; pass < 2; ++pass) {
      for (int i = 0; i < j; ++i) {
        Complex projection = 0;
        for (int r = 0; r < Q.rows; ++r) projection += std::conj(Q(r, i)) * Q(r, j);
        for (int r = 0; r < Q.rows; ++r) Q(r, j) -= projection * Q(r, i);
      }
    }
    const Real length = std::sqrt(squaredNorm(column(Q, j)));
    for (int r = 0; r < Q.rows; ++r) Q(r, j) /= length;
  }
  return Q;
}

}  // namespace reference
