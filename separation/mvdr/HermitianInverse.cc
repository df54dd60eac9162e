#include "separation/mvdr/HermitianInverse.h"

#include <cmath>

#include "separation/mvdr/FiniteProducts.h"

namespace Separation {

namespace {

using Complex = std::complex<double>;

}  // namespace

bool invertHermitian(std::size_t M, Complex* A, Complex* inverse, double* logDeterminant) {
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
    L(j, j) = scale;  // of L⁻¹ already
  }
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

}  // namespace Separation
