#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>

#include "matrix/CholeskyFactor.h"
#include "matrix/Matrix.h"
#include "matrix/evd.h"
#include "matrix/svd.h"

namespace BF {

namespace {

KernelMatrix<double> toKernel(const Matrix& a) {
  KernelMatrix<double> result(a.getRowCount(), a.getColumnCount());
  std::copy_n(a.data(), result.data().size(), result.data().begin());
  return result;
}

Matrix fromKernel(const KernelMatrix<double>& a) {
  Matrix result(static_cast<int>(a.size1()), static_cast<int>(a.size2()));
  std::copy_n(a.data().begin(), a.data().size(), result.data());
  return result;
}

Matrix columnFrom(const KernelVector<double>& values) {
  Matrix result(static_cast<int>(values.size()), 1);
  for (int i = 0; i < result.getRowCount(); ++i) result.setElementAt(i, 0, values(i), 0.0);
  return result;
}

void replace(Matrix& target, Matrix value) { target.swap(value); }

/// x / p as x · conj(p) / |p|².
std::complex<double> dividedBy(const std::complex<double>& x, const std::complex<double>& p) {
  return x * std::conj(p) / std::norm(p);
}

/// x / p. Where p is real, positive and far from overflow, plain divisions that vectors can do.
std::complex<double> dividedByPivot(const std::complex<double>& x, const std::complex<double>& p) {
  const double re = p.real();
  const double im = p.imag();
  if (im != 0.0 || re < 1e-140 || re > 1e140 || std::isnan(re)) return x / p;
  return {(x.real() + im * (x.imag() / re)) / re, (x.imag() - im * (x.real() / re)) / re};
}

void swapRows(Matrix& a, int i, int k) {
  const Matrix row = a.getRow(i);
  a.setRow(i, a.getRow(k));
  a.setRow(k, row);
}

void addRow(Matrix& a, const std::complex<double>& f, int from, int to) {
  for (int j = 0; j < a.getColumnCount(); ++j) {
    a.setElementAt(to, j, a.getElementAt(to, j) + f * a.getElementAt(from, j));
  }
}

void divideRow(Matrix& a, int row, const std::complex<double>& pivot) {
  for (int j = 0; j < a.getColumnCount(); ++j) {
    a.setElementAt(row, j, dividedBy(a.getElementAt(row, j), pivot));
  }
}

bool isZero(const std::complex<double>& z) { return z.real() == 0.0 && z.imag() == 0.0; }

}  // namespace

Matrix Matrix::Inverse() const {
  if (rows != columns) {
    std::puts("Error : Inverse : Not a square matrix.");
    return {rows, columns};
  }
  const int n = rows;
  Matrix W(*this);
  Matrix R = I(n);
  for (int i = 0; i < n; ++i) {
    if (isZero(W.getElementAt(i, i))) {
      int k = i + 1;
      while (k < n && isZero(W.getElementAt(k, i))) ++k;
      if (k < n) {
        swapRows(W, i, k);
        swapRows(R, i, k);
      } else {
        std::puts("ERROR!!No inverse matrix available.");
      }
    }
    const std::complex<double> pivot = W.getElementAt(i, i);
    for (int j = 0; j < n; ++j) {
      if (j == i) continue;
      const std::complex<double> f = dividedBy(-W.getElementAt(j, i), pivot);
      addRow(W, f, i, j);
      addRow(R, f, i, j);
    }
    divideRow(W, i, pivot);
    divideRow(R, i, pivot);
  }
  return R;
}

Matrix Matrix::pseudoInverse() const {
  const bool wide = rows < columns;
  const Matrix M = wide ? transposed(false) : *this;
  const int p = M.rows;
  const int q = M.columns;
  Matrix U;
  Matrix S;
  Matrix V;
  M.singularValueDecomposition(U, S, V);

  Matrix inverseSigma(q, p);  // Σ⁺
  for (int i = 0; i < q && i < p; ++i) {
    const std::complex<double>& s = S.getElementAt(i, 0);
    if (std::abs(s) > SMALL_NUMBER) {
      inverseSigma.setElementAt(i, i, std::complex<double>(1.0, 0.0) / s);
    }
  }
  const Matrix result = V * inverseSigma * U.transposed(true);
  return wide ? result.transposed(false) : result;
}

void Matrix::singularValueDecomposition(Matrix& U, Matrix& S, Matrix& V) const {
  KernelMatrix<double> a = toKernel(*this);
  KernelMatrix<double> u(rows, rows);
  KernelMatrix<double> v(columns, columns);
  KernelVector<double> s(std::max(rows, columns));
  svd<double>(a, s, u, v);
  replace(U, fromKernel(u));
  replace(S, columnFrom(s));
  replace(V, fromKernel(v));
}

void Matrix::generalizedSingularValues(const Matrix& B, Matrix& U, Matrix& S, Matrix& V) const {
  Matrix G = B.Inverse() * *this;
  if (G.rows != rows) {  // the "inverse" of a B that is not square is zero, and of B's shape
    Matrix shaped(rows, columns);
    shaped.setSubmatrix(0, 0, G.getSubmatrix(0, 0, std::min(G.rows, rows), columns));
    G.swap(shaped);
  }
  G.singularValueDecomposition(U, S, V);
}

void Matrix::eigenValues(Matrix& values, Matrix& vectors) const {
  if (rows != columns) throw NotSquareMatrixException();
  KernelMatrix<double> a = toKernel(*this);
  KernelMatrix<double> v(rows, rows);
  KernelVector<double> d(rows);
  evd<double>(a, d, v);
  replace(values, columnFrom(d));
  replace(vectors, fromKernel(v));
}

void Matrix::generalizedEigenValues(const Matrix& B, Matrix& values, Matrix& vectors) const {
  // D = R⁻ᴴ · A · R⁻¹ has the pair's eigenvalues, and R⁻¹ turns its eigenvectors into those of the
  // pair.
  const Matrix inverseR = B.inverseCholeskyFactor();
  const Matrix D = inverseR.transposed(true) * *this * inverseR;
  Matrix Y;
  D.eigenValues(values, Y);
  replace(vectors, inverseR * Y);
}

Matrix Matrix::inverseCholeskyFactor() const {
  Matrix R;
  choleskyFactor(*this, R);
  return R.pseudoInverse();
}

void choleskyFactor(const Matrix& B, Matrix& R) {
  const int n = B.getRowCount();
  if (n != B.getColumnCount()) throw NotSquareMatrixException();
  reshape(R, n, n);
  for (int j = 0; j < n; ++j) {
    // Σ over k < j of conj(R(k, j)) · R(k, i)
    const auto sumUpTo = [&R, j](int i) {
      std::complex<double> sum = 0.0;
      for (int k = 0; k < j; ++k) sum += std::conj(R.getElementAt(k, j)) * R.getElementAt(k, i);
      return sum;
    };
    for (int i = 0; i < j; ++i) R.setElementAt(j, i, 0.0, 0.0);
    R.setElementAt(j, j, std::sqrt(B.getElementAt(j, j) - sumUpTo(j)));
    for (int i = j + 1; i < n; ++i) {
      R.setElementAt(j, i, dividedByPivot(B.getElementAt(j, i) - sumUpTo(i), R.getElementAt(j, j)));
    }
  }
}

}  // namespace BF
