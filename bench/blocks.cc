// The separator in blocks, without Python around it: what bench/python compares the package with.
//   zelk-bench-blocks METHOD DATABASE SAMPLES ADVANCE BLOCK REPETITIONS AZIMUTH …
// SAMPLES is a file of float32, the microphones interleaved; each AZIMUTH is a source 1.5 m away.
// Prints the processor seconds of the quickest pass.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "fileio/SofaFile.h"
#include "geometry/Direction.h"
#include "responses/DatabaseFile.h"
#include "scene/SceneMoment.h"
#include "separation/Methods.h"
#include "separation/Separator.h"

namespace {

std::vector<float> readSamples(const std::string& path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  std::vector<float> samples(static_cast<std::size_t>(file.tellg()) / sizeof(float));
  file.seekg(0);
  file.read(reinterpret_cast<char*>(samples.data()),
            static_cast<std::streamsize>(samples.size() * sizeof(float)));
  if (!file) throw std::runtime_error(path + " cannot be read");
  return samples;
}

double processorSeconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

/// The list is given with every block, as a program does that asks a tracker.
double secondsOfPass(Separation::Separator separator, const std::vector<float>& samples,
                     const std::vector<BF::SourceLocation>& sources, std::size_t block) {
  const auto M = static_cast<std::size_t>(separator.microphones());
  const std::size_t total = samples.size() / M;
  separator.setSources(sources);
  const double begin = processorSeconds();
  for (std::size_t done = 0; done < total; done += block) {
    separator.setSources(sources);
    separator.push(samples.data() + done * M, std::min(block, total - done));
  }
  return processorSeconds() - begin;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  const Method& method = methodNamed(arguments.at(0));
  const BF::TransformFunctionDatabase database = databaseOf(SofaFile(arguments.at(1)));
  const std::vector<float> samples = readSamples(arguments.at(2));
  Separation::Settings settings;
  settings.method = method.algorithm;
  settings.parameters = engineParameters(method, {});
  settings.length = 2 * (static_cast<int>(database.transferFunctions.size()) - 1);
  settings.advance = std::stoi(arguments.at(3));
  const std::size_t block = std::stoul(arguments.at(4));
  std::vector<BF::SourceLocation> sources;
  for (std::size_t i = 6; i < arguments.size(); ++i) {
    const BF::Location place = BF::locationOf({std::stod(arguments[i]), 0.0, 1.5});
    sources.push_back(
        asSeparated({place.x, place.y, place.z}, static_cast<int>(sources.size()), true));
  }
  double least = std::numeric_limits<double>::max();
  for (int i = std::stoi(arguments.at(5)); i > 0; --i) {
    least = std::min(
        least, secondsOfPass(Separation::Separator(settings, database), samples, sources, block));
  }
  std::printf("%.9f\n", least);
}
