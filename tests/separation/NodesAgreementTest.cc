// The dataflow network of the same separation gives the same files, to the bit.

#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "audio/FrameReader.h"
#include "cli/NetworkRun.h"
#include "cli/SeparationNetwork.h"
#include "gtest/gtest.h"
#include "responses/DatabaseFile.h"
#include "scene/Scene.h"
#include "separation/Methods.h"
#include "separation/NoiseFile.h"
#include "separation/Separator.h"
#include "tests/fileio/SofaFiles.h"
#include "tests/support/AudioTesting.h"

namespace {

constexpr int RATE = 16000;
constexpr int LENGTH = 32;
constexpr int ADVANCE = 10;
constexpr int MICS = 3;

// One that comes and goes, one that moves and pauses, and a noise source; for a while nobody.
const char* const SCENE = R"({
  "sources": [
    {"id": 4, "position": [1, 2, 0], "active": [[0.02, 0.06], [0.08, 0.12]]},
    {"id": 2, "track": [{"t": 0.03, "azimuth": 60, "distance": 2}, {"t": 0.1, "azimuth": -70}],
     "active": [[0.03, 0.05], [0.055, 0.11]]}],
  "noise": [{"id": 9, "position": [3, 0, 0.5], "active": [[0.04, 0.09]]}]})";

Separation::Settings settingsOf(const SeparationSettings& s) {
  static const std::map<std::string, BF::BfAlgorithmType> METHODS = {
      {"DS", BF::BF_ALGORITHM_DS},     {"WDS", BF::BF_ALGORITHM_WDS},
      {"NULL", BF::BF_ALGORITHM_NULL}, {"ILSE", BF::BF_ALGORITHM_ILSE},
      {"LCMV", BF::BF_ALGORITHM_LCMV}, {"GJ", BF::BF_ALGORITHM_GJ},
      {"GICA", BF::BF_ALGORITHM_GICA}, {"ML", BF::BF_ALGORITHM_CML},
      {"MSNR", BF::BF_ALGORITHM_CMSNR}};
  Separation::Settings settings;
  settings.method = METHODS.at(s.method->name);
  settings.level = false;  // the network has none
  // The command's defaults, in the nodes' single precision.
  settings.parameters.mu = s.method->name == "GICA" ? 0.1F : 0.2F;
  settings.parameters.mu_ss = settings.parameters.scale = 0.1F;
  settings.parameters.regFactor = 0.01F;
  settings.parameters.alpha = 0.99F;
  if (s.methodParameters.contains("DECOMPOSITION_ALGORITHM")) {
    settings.parameters.decompositionAlgorithm = "GSVD";
  }
  settings.length = LENGTH;
  settings.advance = ADVANCE;
  settings.window = s.window;
  settings.noise.forgetting = 0.98F;
  settings.noise.loading = 0.001F;
  settings.project = s.project;
  settings.projectionForgetting = 0.97F;
  settings.referenceMicrophone = s.reference - 1;
  settings.inactiveAsNoise = false;  // the scene says so itself
  return settings;
}

class NodesAgreement : public testing::Test {
 protected:
  NodesAgreement() : sound(noise(2000 * MICS, 5)) {
    writeSofa(folder / "db.sofa", randomTransferFunctions(12, MICS, LENGTH / 2 + 1));
    writeSound(folder / "in.wav", RATE, MICS, sound);
    folder.write("scene.json", SCENE);
  }

  SeparationSettings networkSettings(const Method& method, const std::string& window) const {
    SeparationSettings s;
    s.recording = folder / "in.wav";
    s.database = folder / "db.sofa";
    s.scene = folder / "scene.json";
    s.directory = folder / "out";
    s.method = &method;
    s.length = LENGTH;
    s.advance = ADVANCE;
    s.samplingRate = RATE;
    s.window = window;
    s.format = "FLOAT";
    s.overwrite = true;
    s.inactiveAsNoise = s.project = method.nodeType == "MSNR";
    s.reference = 2;
    s.undoHalfFrameShift = method.nodeType == "ML";
    return s;
  }

  void runNetwork(const SeparationSettings& s) const {
    std::ostringstream ignored;
    runDocument(separationNetwork(s), {}, ignored, 0);
  }

  /// The noise of the recording's stretch that --noise-from names, measured in advance.
  std::vector<BF::Matrix> measuredNoise(const SeparationSettings& s) const {
    Audio::FrameReader reader(Audio::AudioReader(s.recording), {LENGTH, ADVANCE},
                              Audio::windowNamed(s.window));
    const Audio::NoiseCorrelation mean =
        Audio::noiseOfFile(reader, Audio::parseTimeRanges(s.noiseRanges));
    std::vector<std::complex<float>> values(reader.bins() * MICS * MICS);
    mean.write(0.001F, true, values.data());
    std::vector<BF::Matrix> matrices(reader.bins(), BF::Matrix(MICS, MICS));
    for (std::size_t i = 0; i < values.size(); ++i) {
      matrices[i / (MICS * MICS)].data()[i % (MICS * MICS)] = values[i];
    }
    return matrices;
  }

  /// The scene's sources at the time of a frame, at the single precision of the nodes.
  static std::vector<BF::SourceLocation> sourcesAt(const Audio::Scene& scene, double t,
                                                   bool inactiveAsNoise) {
    std::vector<BF::SourceLocation> list;
    const auto add = [&list](const std::vector<Audio::PlacedSource>& placed, bool isTarget) {
      for (const auto& [id, p] : placed) {
        list.emplace_back(static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z),
                          id, isTarget);
      }
    };
    add(scene.targetsAt(t), true);
    add(scene.noiseAt(t, inactiveAsNoise), false);
    return list;
  }

  void expectSameFiles(const SeparationSettings& s) const {
    Separation::Settings settings = settingsOf(s);
    if (!s.noiseRanges.empty()) settings.noise.matrices = measuredNoise(s);
    Separation::Separator separator(settings, databaseOf(SofaFile(s.database)));
    const Audio::Scene scene = Audio::Scene::read(s.scene);
    const Audio::FrameLayout layout(LENGTH, ADVANCE);
    const std::int64_t total = static_cast<std::int64_t>(sound.size()) / MICS;
    for (std::int64_t f = 0; f < layout.frameCount(total); ++f) {
      separator.setSources(sourcesAt(scene, layout.time(f, RATE), s.inactiveAsNoise),
                           separator.sourcesAt(f));
    }
    std::map<int, std::vector<float>> signals;
    const auto append = [&signals](const Separation::Output& output) {
      for (const auto& [id, samples] : output.signals) {
        signals[id].resize(static_cast<std::size_t>(output.start));
        signals[id].insert(signals[id].end(), samples.begin(), samples.end());
      }
    };
    for (std::int64_t n = 0; n < total; n += 77) {
      append(separator.push(sound.data() + n * MICS,
                            static_cast<std::size_t>(std::min<std::int64_t>(77, total - n))));
    }
    append(separator.flush());
    ASSERT_EQ(signals.size(), 2U);
    for (auto& [id, samples] : signals) {
      samples.resize(static_cast<std::size_t>(total));
      EXPECT_EQ(samples, readSound(folder / ("out/source_" + std::to_string(id) + ".wav")).samples)
          << s.method->name << ", source " << id;
    }
  }

  const TestFolder folder;
  const std::vector<float> sound;
};

TEST_F(NodesAgreement, EveryMethodGivesTheSameFiles) {
  for (const Method& method : methods()) {
    // GJ's adaptive part begins anew with every update, and the nodes update with every frame.
    if (method.name == "GJ") continue;
    for (const char* variant : {"", "GSVD", "--noise-from", "--project"}) {
      SeparationSettings s = networkSettings(method, *variant == '\0' ? "HANN" : "HAMMING");
      const std::string name = variant;
      if (name == "GSVD" && method.nodeType != "MSNR") continue;
      if (name == "--noise-from" && method.nodeType != "ML") continue;
      if (name == "GSVD") s.methodParameters["DECOMPOSITION_ALGORITHM"] = "GSVD";
      if (name == "--noise-from") s.noiseRanges = "0-0.01,0.07-0.09";
      if (name == "--project") s.project = !s.project;
      if (s.project) s.undoHalfFrameShift = false;
      SCOPED_TRACE(method.name + " " + name);
      runNetwork(s);
      expectSameFiles(s);
    }
  }
}

}  // namespace
