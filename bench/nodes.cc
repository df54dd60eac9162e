// One frame through each separation node as a host runs it: single-precision frames in, a map of
// spectra by id out, the plug-in loaded from the build's toolbox folder.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "SofaWriter.h"
#include "ToolboxLoader.h"
#include "bench/Scenes.h"
#include "tests/support/NodeTesting.h"

namespace {

/// Circular complex Gaussian values from a fixed seed.
std::vector<std::complex<float>> randomValues(std::size_t count, unsigned seed) {
  std::mt19937 generator(seed);
  std::normal_distribution<float> gaussian(0.0F, std::sqrt(0.5F));
  std::vector<std::complex<float>> result;
  for (std::size_t i = 0; i < count; ++i) {
    const float re = gaussian(generator);
    result.emplace_back(re, gaussian(generator));
  }
  return result;
}

/// A database of M microphones on disk, removed at the end of the program.
const std::string& databaseFile(int M) {
  struct File {
    explicit File(int mics) : path("zelk-bench-" + std::to_string(mics) + ".sofa") {
      SofaTransferFunctions data;
      for (int s = 0; s < bench::POSITIONS; ++s) {
        const double angle = 2.0 * 3.141592653589793 * s / bench::POSITIONS;
        data.sourcePositions.push_back({std::cos(angle), std::sin(angle), 0.0});
      }
      for (int m = 0; m < mics; ++m) data.receiverPositions.push_back({0.0, 0.05 * m, 0.0});
      data.samplingRate = bench::SAMPLING_RATE;
      data.frequencies = bench::BINS;
      data.values =
          randomValues(static_cast<std::size_t>(bench::POSITIONS) * mics * bench::BINS, 1);
      writeSofa(path, data);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() { std::remove(path.c_str()); }
    std::string path;
  };
  static std::vector<std::unique_ptr<File>> files(64);
  if (!files[M]) files[M] = std::make_unique<File>(M);
  return files[M]->path;
}

FD::ObjectRef frameOf(int rows, int columns, unsigned seed) {
  auto* frame = new SpectrumMatrix(rows, columns);
  const std::vector<std::complex<float>> values =
      randomValues(static_cast<std::size_t>(rows) * columns, seed);
  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < columns; ++j) (*frame)(i, j) = values[i * columns + j];
  }
  return FD::ObjectRef(frame);
}

/// Bins × M² noise correlations x · xᴴ + I, as INPUT_NOISE_CM takes them.
FD::ObjectRef noiseOf(int M, unsigned seed) {
  auto* noise = new SpectrumMatrix(bench::BINS, M * M);
  for (int k = 0; k < bench::BINS; ++k) {
    const std::vector<std::complex<float>> x = randomValues(M, seed + k);
    for (int i = 0; i < M * M; ++i) {
      (*noise)(k, i) = x[i / M] * std::conj(x[i % M]) + (i / M == i % M ? 1.0F : 0.0F);
    }
  }
  return FD::ObjectRef(noise);
}

FD::ObjectRef sourcesAt(int N) {
  std::vector<FD::Source> sources;
  for (const BF::SourceLocation& s : bench::sourceList(N)) {
    sources.emplace_back(s.id, static_cast<float>(s.x), static_cast<float>(s.y),
                         static_cast<float>(s.z));
  }
  return sourceList(sources);
}

void node(benchmark::State& state, const std::string& type, const std::string& method) {
  static const FD::ToolboxReport loaded = FD::loadToolboxes({ZELK_TOOLBOX});
  const int M = static_cast<int>(state.range(0));
  const int N = static_cast<int>(state.range(1));
  Parameters settings = {{"LENGTH", number(2 * (bench::BINS - 1))},
                         {"SAMPLING_RATE", number(bench::SAMPLING_RATE)}};
  if (type == "BeamForming") settings.emplace_back("BF_METHOD", text(method));
  if (type != "MSNR") settings.emplace_back("TF_CONJ_FILENAME", text(databaseFile(M)));
  if (type == "ML") settings.emplace_back("REG_FACTOR", real(0.01F));

  std::vector<FD::ObjectRef> frames;
  for (int i = 0; i < bench::FRAMES; ++i) frames.push_back(frameOf(M, bench::BINS, 1 + i));
  const FD::ObjectRef noise[] = {noiseOf(M, 1000), noiseOf(M, 2000)};
  const FD::ObjectRef sources = sourcesAt(N);
  std::vector<NodePtr> feeds;
  const NodePtr separation = makeNode(type, settings);
  const auto feed = [&](const std::string& input, const Stub::Output& function) {
    feeds.emplace_back(new Stub("feed", {{"OUTPUT", function}}));
    separation->connectToNode(input, feeds.back().get(), "OUTPUT");
  };
  feed("INPUT_FRAMES", [&](int count) { return frames[count % bench::FRAMES]; });
  feed("INPUT_SOURCES", [&](int) { return sources; });
  if (type == "ML") feed("INPUT_NOISE_CM", [&](int count) { return noise[count % 2]; });
  separation->initialize();

  int count = 0;
  while (count < bench::FIRST_FRAMES) separation->getOutput(0, count++);
  for (auto _ : state) benchmark::DoNotOptimize(separation->getOutput(0, count++));
}

void nodeSizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"M", "N"})->ArgsProduct({{4, 8, 16, 32}, {1, 2, 4}});
  benchmark->Unit(benchmark::kMicrosecond);
}

BENCHMARK_CAPTURE(node, NULL, "BeamForming", "NULL")->Apply(nodeSizes);
BENCHMARK_CAPTURE(node, LCMV, "BeamForming", "LCMV")->Apply(nodeSizes);
BENCHMARK_CAPTURE(node, GJ, "BeamForming", "GJ")->Apply(nodeSizes);
BENCHMARK_CAPTURE(node, GICA, "BeamForming", "GICA")->Apply(nodeSizes);
BENCHMARK_CAPTURE(node, ML, "ML", "")->Apply(nodeSizes);
BENCHMARK_CAPTURE(node, MSNR, "MSNR", "")->Apply(nodeSizes);

}  // namespace
