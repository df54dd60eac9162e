#include "separation/mvdr/SoudenWeights.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace Separation {

namespace {

using Complex = std::complex<double>;

// Products without the care for infinities that the operators take.
Complex times(const Complex& a, const Complex& b) {
  return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}
Complex timesConjugate(const Complex& a, const Complex& b) {
  return {a.real() * b.real() + a.imag() * b.imag(), a.imag() * b.real() - a.real() * b.imag()};
}

}  // namespace

SoudenWeights::SoudenWeights(int microphones, int referenceMicrophone, double loading)
    : M(static_cast<std::size_t>(microphones)),
      u(static_cast<std::size_t>(referenceMicrophone)),
      lambda(loading),
      sum(M * M),
      Rn(M * M),
      inverse(M * M) {}

// R_n = L · Lᴴ with a lower triangle L, and R_n⁻¹ = L⁻ᴴ · L⁻¹.
bool SoudenWeights::invert() {
  const auto L = [this](std::size_t i, std::size_t j) -> Complex& { return Rn[i * M + j]; };
  for (std::size_t j = 0; j < M; ++j) {
    double pivot = L(j, j).real();
    for (std::size_t k = 0; k < j; ++k) pivot -= std::norm(L(j, k));
    if (!(pivot > 0.0)) return false;
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

void SoudenWeights::compute(const std::vector<const Complex*>& R, Complex* W) {
  const std::size_t N = R.size();
  std::fill(W, W + N * M, 0.0);
  std::fill(sum.begin(), sum.end(), 0.0);
  for (const Complex* Ri : R) {
    for (std::size_t i = 0; i < M * M; ++i) sum[i] += Ri[i];
  }
  double sigma = 0.0;
  for (std::size_t i = 0; i < M; ++i) sigma += sum[i * M + i].real();
  sigma /= static_cast<double>(M * N);
  if (!(sigma > 0.0)) return;

  for (std::size_t s = 0; s < N; ++s, W += M) {
    const Complex* Rs = R[s];
    for (std::size_t i = 0; i < M * M; ++i) Rn[i] = sum[i] - Rs[i];
    for (std::size_t i = 0; i < M; ++i) Rn[i * M + i] += lambda * sigma;
    if (!invert()) continue;
    // tr(R_n⁻¹ · R_s) of Hermitian matrices is the sum over all elements of one times the other's
    // conjugate.
    double trace = 0.0;
    for (std::size_t i = 0; i < M * M; ++i) trace += timesConjugate(inverse[i], Rs[i]).real();
    if (!(trace > 0.0)) continue;
    for (std::size_t m = 0; m < M; ++m) {
      Complex g = 0.0;
      for (std::size_t i = 0; i < M; ++i) g += times(inverse[m * M + i], Rs[i * M + u]);
      W[m] = std::conj(g) / trace;
    }
  }
}

}  // namespace Separation
