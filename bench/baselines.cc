// The plain loops that the engine's steps are measured against, at 8 microphones and 2 sources, and
// the engine's own steps beside them.
#include <benchmark/benchmark.h>

#include "bench/PlainLoops.h"
#include "bench/Scenes.h"

namespace {

constexpr int M = 8;
constexpr int N = 2;

void plain(benchmark::State& state, void (bench::PlainState::*step)()) {
  bench::PlainState arrays(bench::BINS, N, M);
  for (auto _ : state) {
    (arrays.*step)();
    benchmark::ClobberMemory();
  }
}

/// Only executeBeamForming of an engine.
void apply(benchmark::State& state) {
  const std::unique_ptr<BF::BF> engine = bench::makeEngine(BF::BF_ALGORITHM_DS, M);
  engine->updateSources(bench::sourceList(N));
  const BF::Matrix input = bench::randomFrame(M, 1);
  BF::Matrix output;
  for (auto _ : state) engine->executeBeamForming(input, output);
}

/// Only adaptSeparationMatrices of an engine.
void adapt(benchmark::State& state, int algorithm) {
  const std::unique_ptr<BF::BF> engine = bench::makeEngine(algorithm, M);
  engine->updateSources(bench::sourceList(N));
  BF::Matrix output;
  engine->executeBeamForming(bench::randomFrame(M, 1), output);
  for (auto _ : state) engine->adaptSeparationMatrices();
}

BENCHMARK(apply)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(adapt, GICA, BF::BF_ALGORITHM_GICA)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(adapt, LCMV, BF::BF_ALGORITHM_LCMV)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(adapt, GJ, BF::BF_ALGORITHM_GJ)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(plain, apply, &bench::PlainState::apply)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(plain, GICA, &bench::PlainState::adaptGica)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(plain, LCMV, &bench::PlainState::adaptLcmv)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(plain, GJ, &bench::PlainState::adaptGj)->Unit(benchmark::kMicrosecond);

}  // namespace
