// What the separator has beyond the engine's methods: MVDR from whole responses and refinement.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>

#include "bench/Scenes.h"
#include "dsp/Window.h"
#include "separation/mvdr/Mvdr.h"
#include "separation/refine/RunningRefinement.h"

namespace {

constexpr int TAPS = bench::SAMPLING_RATE / 2;  // half a second of room

std::unique_ptr<Separation::Mvdr> makeMvdr(int M) {
  Separation::ImpulseResponses responses;
  std::mt19937 random(1);
  std::normal_distribution<float> normal;
  responses.positions = bench::sourceList(4);
  responses.microphones = static_cast<std::size_t>(M);
  responses.taps = TAPS;
  responses.samplingRate = bench::SAMPLING_RATE;
  for (int i = 0; i < 4 * M * TAPS; ++i) {
    responses.samples.push_back(normal(random) * std::exp(-7.0F * (i % TAPS) / TAPS));
  }
  const std::vector<float> window =
      Audio::makeWindow(Audio::WindowType::Hann, 2 * (bench::BINS - 1));
  const auto stack = Separation::FrameStack::halfOverlapping(4, 2 * (bench::BINS - 1), 160);
  return std::make_unique<Separation::Mvdr>(Separation::SpatialCovariance(responses, window, stack),
                                            bench::SAMPLING_RATE, 0, 1e-4);
}

/// A frame with the sources that the last one had; or with ones at other places, whose covariances
/// are known; or the first one ever.
enum class Sources { SAME, MOVED, NEW };

void mvdrFrame(benchmark::State& state, Sources kind) {
  const int M = static_cast<int>(state.range(0));
  const int N = static_cast<int>(state.range(1));
  std::unique_ptr<Separation::Mvdr> engine = makeMvdr(M);
  const std::vector<BF::SourceLocation> places = bench::sourceList(4);
  const BF::Matrix X = bench::randomFrame(M, 1);
  BF::Matrix Y;
  int moves = 0;
  const auto oneFrame = [&] {
    std::vector<BF::SourceLocation> sources;
    for (int s = 0; s < N; ++s)
      sources.push_back(places[static_cast<std::size_t>((s + moves) % 4)]);
    if (kind == Sources::MOVED) ++moves;
    engine->updateSources(sources);
    engine->executeBeamForming(X, Y);
  };
  for (int i = 0; i < 4 && kind != Sources::NEW; ++i) oneFrame();
  for (auto _ : state) {
    if (kind == Sources::NEW) {
      state.PauseTiming();
      engine = makeMvdr(M);
      state.ResumeTiming();
    }
    oneFrame();
  }
}

void refinementFrame(benchmark::State& state) {
  const int M = static_cast<int>(state.range(0));
  const int N = static_cast<int>(state.range(1));
  Separation::RunningRefinement refinement(M, bench::BINS, 0.995, 1e-4, 0);
  const std::vector<BF::SourceLocation> sources = bench::sourceList(N);
  std::vector<std::size_t> rows;
  for (int s = 0; s < N; ++s) rows.push_back(static_cast<std::size_t>(s));
  std::vector<BF::Matrix> X;
  for (int i = 0; i < bench::FRAMES; ++i) X.push_back(bench::randomFrame(M, 1 + i));
  int count = 0;
  for (auto _ : state) {
    const BF::Matrix& frame = X[static_cast<std::size_t>(count++ % bench::FRAMES)];
    BF::Matrix Y(N, bench::BINS);
    std::copy_n(frame.data(), N * bench::BINS, Y.data());
    refinement.refine(sources, rows, frame, Y);
  }
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"M", "N"})->ArgsProduct({{4, 8, 16}, {2, 4}});
  benchmark->Unit(benchmark::kMicrosecond);
}

BENCHMARK_CAPTURE(mvdrFrame, same sources, Sources::SAME)->Apply(sizes);
BENCHMARK_CAPTURE(mvdrFrame, known places, Sources::MOVED)->Apply(sizes);
BENCHMARK_CAPTURE(mvdrFrame, new places, Sources::NEW)->Apply(sizes)->Iterations(3);
BENCHMARK(refinementFrame)->Apply(sizes);

}  // namespace
