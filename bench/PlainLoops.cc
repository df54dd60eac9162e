#include "bench/PlainLoops.h"

#include <cmath>
#include <cstddef>
#include <random>

namespace bench {

namespace {

constexpr double MU = 0.001;
constexpr double MU_SS = 0.001;
constexpr double SCALE = 0.1;
constexpr double EPS = 1e-10;

/// sum += a · b, written out: the product of std::complex looks for NaN at every element.
void addProduct(Complex& sum, const Complex& a, const Complex& b) {
  sum = {sum.real() + (a.real() * b.real() - a.imag() * b.imag()),
         sum.imag() + (a.real() * b.imag() + a.imag() * b.real())};
}

Complex times(const Complex& a, const Complex& b) {
  return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

std::vector<Complex> randomArray(std::size_t count, unsigned seed) {
  std::mt19937 generator(seed);
  std::normal_distribution<double> gaussian(0.0, std::sqrt(0.5));
  std::vector<Complex> result;
  for (std::size_t i = 0; i < count; ++i) {
    const double re = gaussian(generator);
    result.emplace_back(re, gaussian(generator));
  }
  return result;
}

std::size_t product(int a, int b, int c = 1, int d = 1) {
  return static_cast<std::size_t>(a) * static_cast<std::size_t>(b) * static_cast<std::size_t>(c) *
         static_cast<std::size_t>(d);
}

}  // namespace

PlainState::PlainState(int bins, int sources, int microphones)
    : K(bins),
      N(sources),
      M(microphones),
      x(randomArray(product(K, M), 1)),
      y(randomArray(product(K, N), 2)),
      W(randomArray(product(K, N, M), 3)),
      A(randomArray(product(K, M, N), 4)),
      f(randomArray(product(K, N, M), 5)),
      P(randomArray(product(K, N, M, M), 6)),
      B(randomArray(product(K, N, M - 1, M), 7)),
      wa(product(K, N, M - 1)) {}

void PlainState::apply() {
  for (int k = 0; k < K; ++k) {
    for (int n = 0; n < N; ++n) {
      Complex sum = 0.0;
      for (int m = 0; m < M; ++m) addProduct(sum, W[(k * N + n) * M + m], x[k * M + m]);
      y[k * N + n] = sum;
    }
  }
}

// W −= μ_ss · (off-diagonal of φ(y) · yᴴ) · W + μ_lc · (diagonal of W · A − I) · Aᴴ
void PlainState::adaptGica() {
  std::vector<Complex> phi(N), Elc(N), Ess(N * N), Jss(N * M), Jlc(N * M);
  for (int k = 0; k < K; ++k) {
    Complex* w = &W[k * N * M];
    const Complex* a = &A[k * M * N];
    const Complex* yk = &y[k * N];
    const Complex* xk = &x[k * M];
    double e = 0.0;
    double g = 0.0;
    double ess = 0.0;
    double s = 0.0;
    for (int n = 0; n < N; ++n) {
      Complex wa_n = 0.0;
      for (int m = 0; m < M; ++m) addProduct(wa_n, w[n * M + m], a[m * N + n]);
      Elc[n] = wa_n - 1.0;
      e += std::norm(Elc[n]);
      for (int m = 0; m < M; ++m) {
        Jlc[n * M + m] = times(Elc[n], std::conj(a[m * N + n]));
        g += std::norm(Jlc[n * M + m]);
      }
      const double r = std::abs(yk[n]);
      phi[n] = r < EPS ? Complex(0.0) : yk[n] * (std::tanh(r * SCALE) / r);
    }
    for (int i = 0; i < N; ++i) {
      for (int j = 0; j < N; ++j) {
        Ess[i * N + j] = i == j ? Complex(0.0) : times(phi[i], std::conj(yk[j]));
        ess += std::norm(Ess[i * N + j]);
      }
    }
    for (int i = 0; i < N; ++i) {
      Complex q = 0.0;
      for (int j = 0; j < N; ++j) addProduct(q, 2.0 * Ess[i * N + j], phi[j]);
      for (int m = 0; m < M; ++m) {
        Complex sum = 0.0;
        for (int j = 0; j < N; ++j) addProduct(sum, Ess[i * N + j], w[j * M + m]);
        Jss[i * M + m] = sum;
        s += times(std::conj(sum), times(q, std::conj(xk[m]))).real();
      }
    }
    const double stepLc = MU * 0.5 * e / (g < EPS ? g + EPS : g);
    const double stepSs = MU_SS * 0.5 * ess / (s < EPS ? s + EPS : s);
    for (int i = 0; i < N * M; ++i) w[i] -= stepSs * Jss[i] + stepLc * Jlc[i];
  }
}

void PlainState::adaptLcmv() {
  std::vector<Complex> stepped(M);
  for (int k = 0; k < K; ++k) {
    const Complex* xk = &x[k * M];
    double p = 0.0;
    for (int m = 0; m < M; ++m) p += std::norm(xk[m]);
    const double step = MU / (2.0 * p + (p < EPS ? EPS : 0.0));
    for (int n = 0; n < N; ++n) {
      Complex* w = &W[(k * N + n) * M];
      const Complex* Pn = &P[(k * N + n) * M * M];
      const Complex stepY = step * y[k * N + n];
      for (int m = 0; m < M; ++m) stepped[m] = w[m] - times(stepY, std::conj(xk[m]));
      for (int m = 0; m < M; ++m) w[m] = f[(k * N + n) * M + m];
      for (int i = 0; i < M; ++i) {
        for (int m = 0; m < M; ++m) addProduct(w[m], stepped[i], Pn[i * M + m]);
      }
    }
  }
}

void PlainState::adaptGj() {
  std::vector<Complex> z(M - 1);
  for (int k = 0; k < K; ++k) {
    const Complex* xk = &x[k * M];
    for (int n = 0; n < N; ++n) {
      Complex* w = &W[(k * N + n) * M];
      Complex* a = &wa[(k * N + n) * (M - 1)];
      const Complex* Bn = &B[(k * N + n) * (M - 1) * M];
      double p = 0.0;
      for (int i = 0; i < M - 1; ++i) {
        Complex sum = 0.0;
        for (int m = 0; m < M; ++m) addProduct(sum, Bn[i * M + m], xk[m]);
        z[i] = sum;
        p += std::norm(sum);
      }
      const Complex stepY = y[k * N + n] * (MU / (2.0 * p + (p < 1.0 ? EPS : 0.0)));
      for (int m = 0; m < M; ++m) w[m] = f[(k * N + n) * M + m];
      for (int i = 0; i < M - 1; ++i) {
        addProduct(a[i], stepY, std::conj(z[i]));
        for (int m = 0; m < M; ++m) addProduct(w[m], -a[i], Bn[i * M + m]);
      }
    }
  }
}

}  // namespace bench
