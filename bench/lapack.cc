// The same matrices through LAPACK: its kernels beside ours, and the frames that would be built of
// them. One thread; run it with OPENBLAS_NUM_THREADS=1.
#include <benchmark/benchmark.h>
#include <lapacke.h>

#include <algorithm>
#include <complex>
#include <vector>

#include "bench/Scenes.h"

namespace {

using Complex = std::complex<double>;

lapack_complex_double* raw(Complex* z) { return reinterpret_cast<lapack_complex_double*>(z); }

/// Column-major copy, as LAPACK stores it.
std::vector<Complex> columnMajor(const BF::Matrix& a) {
  std::vector<Complex> result;
  for (int j = 0; j < a.getColumnCount(); ++j) {
    for (int i = 0; i < a.getRowCount(); ++i) result.push_back(a.getElementAt(i, j));
  }
  return result;
}

/// zgesdd for m × n matrices, all vectors, its work arrays allocated once.
class Svd {
 public:
  Svd(int rows, int columns)
      : m(rows),
        n(columns),
        a(m * n),
        u(m * m),
        vt(n * n),
        s(std::min(m, n)),
        rwork(7 * m * n + 7 * m + 7 * n),
        iwork(8 * std::min(m, n)) {
    Complex size;
    LAPACKE_zgesdd_work(LAPACK_COL_MAJOR, 'A', m, n, raw(a.data()), m, s.data(), raw(u.data()), m,
                        raw(vt.data()), n, raw(&size), -1, rwork.data(), iwork.data());
    work.resize(static_cast<std::size_t>(size.real()));
  }

  void run(const std::vector<Complex>& matrix) {
    a = matrix;
    LAPACKE_zgesdd_work(LAPACK_COL_MAJOR, 'A', m, n, raw(a.data()), m, s.data(), raw(u.data()), m,
                        raw(vt.data()), n, raw(work.data()), static_cast<int>(work.size()),
                        rwork.data(), iwork.data());
  }

  /// inverse (n × m, column-major) := V · Σ⁺ · Uᴴ of the last matrix.
  void pseudoInverse(std::vector<Complex>& inverse) const {
    inverse.assign(static_cast<std::size_t>(n) * m, 0.0);
    for (int r = 0; r < std::min(m, n); ++r) {
      if (s[r] <= 1e-10) continue;
      for (int j = 0; j < m; ++j) {
        const Complex factor = std::conj(u[r * m + j]) / s[r];
        for (int i = 0; i < n; ++i) {
          const Complex v = std::conj(vt[i * n + r]);
          inverse[j * n + i] += Complex(v.real() * factor.real() - v.imag() * factor.imag(),
                                        v.real() * factor.imag() + v.imag() * factor.real());
        }
      }
    }
  }

 private:
  int m, n;
  std::vector<Complex> a, u, vt;
  std::vector<double> s, rwork;
  std::vector<int> iwork;
  std::vector<Complex> work;
};

/// zheev and zhegv for n × n matrices with vectors, their work arrays allocated once.
class HermitianEigen {
 public:
  explicit HermitianEigen(int order) : n(order), a(n * n), b(n * n), w(n), rwork(3 * n) {
    Complex size;
    LAPACKE_zhegv_work(LAPACK_COL_MAJOR, 1, 'V', 'U', n, raw(a.data()), n, raw(b.data()), n,
                       w.data(), raw(&size), -1, rwork.data());
    work.resize(static_cast<std::size_t>(size.real()));
  }

  void ordinary(const std::vector<Complex>& A) {
    a = A;
    LAPACKE_zheev_work(LAPACK_COL_MAJOR, 'V', 'U', n, raw(a.data()), n, w.data(), raw(work.data()),
                       static_cast<int>(work.size()), rwork.data());
  }

  void generalised(const std::vector<Complex>& A, const std::vector<Complex>& B) {
    a = A;
    b = B;
    LAPACKE_zhegv_work(LAPACK_COL_MAJOR, 1, 'V', 'U', n, raw(a.data()), n, raw(b.data()), n,
                       w.data(), raw(work.data()), static_cast<int>(work.size()), rwork.data());
  }

 private:
  int n;
  std::vector<Complex> a, b;
  std::vector<double> w, rwork;
  std::vector<Complex> work;
};

void zgesdd(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<Complex> A = columnMajor(bench::randomMatrix(n, n, 1));
  Svd svd(n, n);
  for (auto _ : state) svd.run(A);
}

void zheev(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<Complex> A = columnMajor(bench::randomCorrelation(n, 1));
  HermitianEigen eigen(n);
  for (auto _ : state) eigen.ordinary(A);
}

void zhegv(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<Complex> A = columnMajor(bench::randomCorrelation(n, 1));
  const std::vector<Complex> B = columnMajor(bench::randomCorrelation(n, 2));
  HermitianEigen eigen(n);
  for (auto _ : state) eigen.generalised(A, B);
}

/// Random matrices of every bin, column-major.
template <typename Make>
std::vector<std::vector<Complex>> everyBin(Make make) {
  std::vector<std::vector<Complex>> result;
  for (int k = 0; k < bench::BINS; ++k) result.push_back(columnMajor(make(k)));
  return result;
}

/// Null weights of a frame: the pseudo-inverse of each bin's M × N transfer functions.
void nullFrame(benchmark::State& state) {
  const int M = static_cast<int>(state.range(0));
  const int N = static_cast<int>(state.range(1));
  const auto A = everyBin([&](int k) { return bench::randomMatrix(M, N, 1000 + k); });
  Svd svd(M, N);
  std::vector<Complex> W;
  for (auto _ : state) {
    for (const auto& a : A) {
      svd.run(a);
      svd.pseudoInverse(W);
    }
  }
}

/// MVDR weights of a frame: w = aᴴ · R⁺ / (aᴴ · R⁺ · a) for each source, R⁺ the pseudo-inverse of
/// each bin's noise correlation.
void mvdrFrame(benchmark::State& state) {
  const int M = static_cast<int>(state.range(0));
  const int N = static_cast<int>(state.range(1));
  const auto R = everyBin([&](int k) { return bench::randomCorrelation(M, 5000 + k); });
  const auto A = everyBin([&](int k) { return bench::randomMatrix(M, N, 1000 + k); });
  Svd svd(M, M);
  std::vector<Complex> inverse;
  std::vector<Complex> W(static_cast<std::size_t>(N) * M);
  for (auto _ : state) {
    for (int k = 0; k < bench::BINS; ++k) {
      svd.run(R[k]);
      svd.pseudoInverse(inverse);
      for (int n = 0; n < N; ++n) {
        const Complex* a = &A[k][static_cast<std::size_t>(n) * M];
        Complex gain = 0.0;
        for (int j = 0; j < M; ++j) {
          Complex sum = 0.0;
          for (int i = 0; i < M; ++i) sum += std::conj(a[i]) * inverse[j * M + i];
          W[n * M + j] = sum;
          gain += sum * a[j];
        }
        for (int j = 0; j < M; ++j) W[n * M + j] /= gain;
      }
      benchmark::ClobberMemory();
    }
  }
}

/// The generalised eigenproblems of a frame, one per source and bin.
void gevdFrame(benchmark::State& state) {
  const int M = static_cast<int>(state.range(0));
  const int N = static_cast<int>(state.range(1));
  const auto A = everyBin([&](int k) { return bench::randomCorrelation(M, 5000 + k); });
  const auto B = everyBin([&](int k) { return bench::randomCorrelation(M, 9000 + k); });
  HermitianEigen eigen(M);
  for (auto _ : state) {
    for (int k = 0; k < bench::BINS; ++k) {
      for (int n = 0; n < N; ++n) eigen.generalised(A[k], B[k]);
    }
  }
}

BENCHMARK(zgesdd)->Arg(4)->Arg(8)->Arg(16)->Unit(benchmark::kMicrosecond);
BENCHMARK(zheev)->Arg(4)->Arg(8)->Arg(16)->Unit(benchmark::kMicrosecond);
BENCHMARK(zhegv)->Arg(4)->Arg(8)->Arg(16)->Unit(benchmark::kMicrosecond);
BENCHMARK(nullFrame)->Name("lapack/NULL")->Args({8, 2})->Unit(benchmark::kMicrosecond);
BENCHMARK(mvdrFrame)->Name("lapack/MVDR")->Args({8, 2})->Unit(benchmark::kMicrosecond);
BENCHMARK(gevdFrame)->Name("lapack/GEVD")->Args({8, 2})->Unit(benchmark::kMicrosecond);

}  // namespace
