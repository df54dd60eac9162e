// One whole frame of every algorithm: update, apply, adapt, as a node calls it.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include "bench/Scenes.h"

namespace {

/// noiseSource: the last source is listed as noise, not as a target.
void frame(benchmark::State& state, int algorithm, bool noiseSource = false) {
  const int M = static_cast<int>(state.range(0));
  const int N = static_cast<int>(state.range(1));
  const std::unique_ptr<BF::BF> engine = bench::makeEngine(algorithm, M);
  std::vector<BF::SourceLocation> sources = bench::sourceList(N);
  if (noiseSource) sources.back().flag = false;
  std::vector<BF::Matrix> inputs;
  for (int i = 0; i < bench::FRAMES; ++i) inputs.push_back(bench::randomFrame(M, 1 + i));
  // Noise statistics that are new in every frame, as a running estimate gives them.
  std::vector<BF::Matrix> noise[2] = {engine->noiseCorrelationMatrices,
                                      engine->noiseCorrelationMatrices};
  for (BF::Matrix& R : noise[1]) R = R + BF::Matrix::I(M);
  BF::Matrix output;
  const std::size_t bytesBefore = mallinfo2().uordblks;
  const auto oneFrame = [&](int number) {
    engine->noiseCorrelationMatrices = noise[number % 2];
    engine->updateSources(sources);
    engine->executeBeamForming(inputs[number % bench::FRAMES], output);
    engine->adaptSeparationMatrices();
  };
  int count = 0;
  while (count < bench::FIRST_FRAMES) oneFrame(count++);
  // Of the engine without its database, per microphone, bin and source.
  state.counters["bytes"] = static_cast<double>(mallinfo2().uordblks - bytesBefore) /
                            static_cast<double>(M * bench::BINS * N);
  for (auto _ : state) oneFrame(count++);
}

/// A frame in which every source is at another position than in the one before.
void movingFrame(benchmark::State& state, int algorithm) {
  const int M = static_cast<int>(state.range(0));
  const int N = static_cast<int>(state.range(1));
  const std::unique_ptr<BF::BF> engine = bench::makeEngine(algorithm, M);
  const std::vector<BF::SourceLocation> places = engine->tfDatabase->sourceLocations;
  std::vector<BF::SourceLocation> sources = bench::sourceList(N);
  const BF::Matrix input = bench::randomFrame(M, 1);
  BF::Matrix output;
  std::size_t count = 0;
  for (auto _ : state) {
    for (std::size_t s = 0; s < sources.size(); ++s) {
      const int id = sources[s].id;
      sources[s] = places[(count + 9 * s) % places.size()];
      sources[s].id = id;
      sources[s].flag = true;
    }
    ++count;
    engine->updateSources(sources);
    engine->executeBeamForming(input, output);
    engine->adaptSeparationMatrices();
  }
}

void frameSizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"M", "N"})->ArgsProduct({{4, 8, 16, 32}, {1, 2, 4}});
  benchmark->Unit(benchmark::kMicrosecond);
}

BENCHMARK_CAPTURE(frame, DS, BF::BF_ALGORITHM_DS)->Apply(frameSizes);
BENCHMARK_CAPTURE(frame, WDS, BF::BF_ALGORITHM_WDS)->Apply(frameSizes);
BENCHMARK_CAPTURE(frame, NULL, BF::BF_ALGORITHM_NULL)->Apply(frameSizes);
BENCHMARK_CAPTURE(frame, ILSE, BF::BF_ALGORITHM_ILSE)->Apply(frameSizes);
BENCHMARK_CAPTURE(frame, LCMV, BF::BF_ALGORITHM_LCMV)->Apply(frameSizes);
BENCHMARK_CAPTURE(frame, GJ, BF::BF_ALGORITHM_GJ)->Apply(frameSizes);
BENCHMARK_CAPTURE(frame, GICA, BF::BF_ALGORITHM_GICA)->Apply(frameSizes);
BENCHMARK_CAPTURE(frame, CML, BF::BF_ALGORITHM_CML)->Apply(frameSizes);
BENCHMARK_CAPTURE(frame, CMSNR, BF::BF_ALGORITHM_CMSNR)->Apply(frameSizes);
BENCHMARK_CAPTURE(frame, CMSNR with noise, BF::BF_ALGORITHM_CMSNR, true)->Apply(frameSizes);
BENCHMARK_CAPTURE(movingFrame, NULL, BF::BF_ALGORITHM_NULL)->Apply(frameSizes);
BENCHMARK_CAPTURE(movingFrame, ILSE, BF::BF_ALGORITHM_ILSE)->Apply(frameSizes);

}  // namespace
