// One benchmark per decomposition, on n × n matrices.
#include <benchmark/benchmark.h>

#include "bench/Scenes.h"
#include "matrix/EigenBatch.h"
#include "matrix/InverseBatch.h"
#include "matrix/SvdBatch.h"

namespace {

using BF::Matrix;

void svd(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const Matrix A = bench::randomMatrix(n, n, 1);
  Matrix U;
  Matrix S;
  Matrix V;
  for (auto _ : state) A.singularValueDecomposition(U, S, V);
}

void evd(benchmark::State& state) {
  const Matrix A = bench::randomCorrelation(static_cast<int>(state.range(0)), 1);
  Matrix d;
  Matrix V;
  for (auto _ : state) A.eigenValues(d, V);
}

void gevd(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const Matrix A = bench::randomCorrelation(n, 1);
  const Matrix B = bench::randomCorrelation(n, 2);
  Matrix d;
  Matrix V;
  for (auto _ : state) A.generalizedEigenValues(B, d, V);
}

void gsvd(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const Matrix A = bench::randomCorrelation(n, 1);
  const Matrix B = bench::randomCorrelation(n, 2);
  Matrix U;
  Matrix S;
  Matrix V;
  for (auto _ : state) A.generalizedSingularValues(B, U, S, V);
}

void inverse(benchmark::State& state) {
  const Matrix A = bench::randomCorrelation(static_cast<int>(state.range(0)), 1);
  for (auto _ : state) benchmark::DoNotOptimize(A.Inverse());
}

void pseudoInverse(benchmark::State& state) {
  const Matrix A = bench::randomCorrelation(static_cast<int>(state.range(0)), 1);
  for (auto _ : state) benchmark::DoNotOptimize(A.pseudoInverse());
}

/// An operation on eight correlation matrices at once.
void batchOfEight(benchmark::State& state, void (*operation)(const BF::Batch&)) {
  std::vector<Matrix> matrices;
  for (int i = 0; i < 8; ++i) {
    matrices.push_back(bench::randomCorrelation(static_cast<int>(state.range(0)), 1 + i));
  }
  std::vector<Matrix> results(8);
  BF::Batch batch;
  for (int i = 0; i < 8; ++i) batch.push_back({&matrices[i], &results[i]});
  for (auto _ : state) operation(batch);
}
void evdBatch(benchmark::State& state) { batchOfEight(state, BF::principalEigenVectors); }
void pseudoInverseBatch(benchmark::State& state) { batchOfEight(state, BF::pseudoInverses); }
void inverseBatch(benchmark::State& state) { batchOfEight(state, BF::inverses); }

BENCHMARK(pseudoInverseBatch)->Arg(4)->Arg(8)->Arg(16)->Unit(benchmark::kMicrosecond);
BENCHMARK(inverseBatch)->Arg(4)->Arg(8)->Arg(16)->Unit(benchmark::kMicrosecond);
BENCHMARK(evdBatch)->Arg(4)->Arg(8)->Arg(16)->Unit(benchmark::kMicrosecond);
BENCHMARK(svd)->Arg(4)->Arg(8)->Arg(16)->Unit(benchmark::kMicrosecond);
BENCHMARK(evd)->Arg(4)->Arg(8)->Arg(16)->Unit(benchmark::kMicrosecond);
BENCHMARK(gevd)->Arg(4)->Arg(8)->Arg(16)->Unit(benchmark::kMicrosecond);
BENCHMARK(gsvd)->Arg(4)->Arg(8)->Arg(16)->Unit(benchmark::kMicrosecond);
BENCHMARK(inverse)->Arg(4)->Arg(8)->Arg(16)->Unit(benchmark::kMicrosecond);
BENCHMARK(pseudoInverse)->Arg(4)->Arg(8)->Arg(16)->Unit(benchmark::kMicrosecond);

}  // namespace
