#include "separation/mvdr/HermitianInverse.h"

#include <cmath>

#include "separation/mvdr/FiniteProducts.h"

namespace Separation {

namespace {

using Complex = std::complex<double>;

/// Replaces the lower triangle of A by L, but for its diagonal, of which it gives the reciprocals.
bool factorize(std::size_t M, Complex* A, double* logDeterminant) {
  const auto L = [A, M](std::size_t i, std::size_t j) -> Complex& { return A[i * M + j]; };
  if (logDeterminant) *logDeterminant = 0.0;
  for (std::size_t j = 0; j < M; ++j) {
    double pivot = L(j, j).real();
    for (std::size_t k = 0; k < j; ++k) pivot -= std::norm(L(j, k));
    if (!(pivot > 0.0)) return false;
    if (logDeterminant) *logDeterminant += std::log(pivot);
    const double scale = 1.0 / std::sqrt(pivot);
    for (std::size_t i = j + 1; i < M; ++i) {
      Complex value = L(i, j);
      for (std::size_t k = 0; k < j; ++k) value -= timesConjugate(L(i, k), L(j, k));
      L(i, j) = value * scale;
    }
    L(j, j) = scale;
  }
  return true;
}

}  // namespace

bool invertHermitian(std::size_t M, Complex* A, Complex* inverse, double* logDeterminant) {
  if (!factorize(M, A, logDeterminant)) return false;
  const auto L = [A, M](std::size_t i, std::size_t j) -> Complex& { return A[i * M + j]; };
  // Column by column L⁻¹ takes the place of L: row i needs of this column what is inverted above
  // it, and of the columns to the right what is not inverted yet.
  for (std::size_t j = 0; j < M; ++j) {
    for (std::size_t i = j + 1; i < M; ++i) {
      Complex value = 0.0;
      for (std::size_t k = j; k < i; ++k) value -= times(L(i, k), L(k, j));
      L(i, j) = value * L(i, i).real();
    }
  }
  for (std::size_t i = 0; i < M; ++i) {
    for (std::size_t j = 0; j <= i; ++j) {
      Complex value = 0.0;
      for (std::size_t k = i; k < M; ++k) value += timesConjugate(L(k, j), L(k, i));
      inverse[i * M + j] = value;
      inverse[j * M + i] = std::conj(value);
    }
  }
  return true;
}

bool solveHermitian(std::size_t n, Complex* A, const Complex* b, Complex* x, double& form) {
  if (!factorize(n, A, nullptr)) return false;
  // L · y = b, of which bᴴ · A⁻¹ · b = yᴴ · y, then Lᴴ · x = y.
  form = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    const Complex* row = A + i * n;
    Complex value = b[i];
    for (std::size_t k = 0; k < i; ++k) value -= times(row[k], x[k]);
    x[i] = value * row[i].real();
    form += std::norm(x[i]);
  }
  for (std::size_t i = n; i-- > 0;) {
    const Complex* row = A + i * n;
    x[i] *= row[i].real();
    for (std::size_t k = 0; k < i; ++k) x[k] -= timesConjugate(x[i], row[k]);
  }
  return true;
}

}  // namespace Separation
