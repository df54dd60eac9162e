// From a recording to separated sound, with the separation's own nodes: a mixture made by delays in
// free field must come apart.

#include <dlfcn.h>

#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

#include "AudioTesting.h"
#include "NetworkDocument.h"
#include "Runner.h"
#include "fileio/SofaWriter.h"
#include "gtest/gtest.h"
#include "toolbox/core/RealFft.h"
#include "toolbox/core/Scene.h"

namespace {

constexpr int RATE = 16000;
constexpr int LENGTH = 512;
constexpr int SAMPLES = 1 << 16;
constexpr int START = 2 * RATE;  // where the target begins; the other one is always there
constexpr std::array<double, 4> MICROPHONES = {-0.075, -0.025, 0.025, 0.075};  // y, in metres
constexpr double TARGET_AZIMUTH = 40;
constexpr double OTHER_AZIMUTH = -50;

/// When a plane wave from there reaches a microphone, in seconds after the origin.
double delayOf(double azimuth, double y) {
  return -y * std::sin(azimuth * std::numbers::pi / 180) / 343.0;
}

std::complex<float> delayFactor(double frequency, double delay) {
  return std::complex<float>(std::polar(1.0, -2 * std::numbers::pi * frequency * delay));
}

std::vector<float> delayed(const std::vector<float>& sound, double delay) {
  Audio::RealFft fft(SAMPLES);
  std::vector<std::complex<float>> spectrum(SAMPLES / 2 + 1);
  fft.forward(sound.data(), spectrum.data());
  for (std::size_t k = 0; k < spectrum.size(); ++k) {
    spectrum[k] *= delayFactor(static_cast<double>(k) * RATE / SAMPLES, delay);
  }
  std::vector<float> result(SAMPLES);
  fft.inverse(spectrum.data(), result.data());
  return result;
}

/// Noise whose level changes every eighth of a second, from sample `begin` on.
std::vector<float> restlessNoise(unsigned seed, int begin) {
  std::vector<float> sound = noise(SAMPLES, seed, 0.2F);
  const std::vector<float> levels = noise(SAMPLES / 2000 + 1, seed + 1, 1.0F);
  for (int n = 0; n < SAMPLES; ++n) {
    sound[n] *= n < begin ? 0.0F : std::abs(levels[n / 2000]);
  }
  return sound;
}

/// How much stronger than everything else the reference is in the sound, in dB, whatever its level;
/// over the part in which both sources are there.
double purity(const std::vector<float>& sound, const std::vector<float>& reference) {
  double sr = 0;
  double rr = 0;
  double ss = 0;
  for (int n = START + RATE / 2; n < SAMPLES - LENGTH; ++n) {
    sr += static_cast<double>(sound[n]) * static_cast<double>(reference[n]);
    rr += static_cast<double>(reference[n]) * static_cast<double>(reference[n]);
    ss += static_cast<double>(sound[n]) * static_cast<double>(sound[n]);
  }
  const double own = sr * sr / rr;
  return 10 * std::log10(own / (ss - own));
}

using Parameters = std::vector<FD::ParameterDescription>;

/// A node that has the frames' layout among its parameters.
FD::NodeDescription withLayout(const std::string& name, const std::string& type,
                               const Parameters& others) {
  FD::NodeDescription node{name,
                           type,
                           {{"LENGTH", "int", std::to_string(LENGTH)},
                            {"ADVANCE", "int", "128"},
                            {"SAMPLING_RATE", "int", std::to_string(RATE)}}};
  node.parameters.insert(node.parameters.end(), others.begin(), others.end());
  return node;
}

class SeparationTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    for (const char* plugin : {ZELK_AUDIO_PLUGIN, ZELK_SSS_PLUGIN}) {
      ASSERT_NE(dlopen(plugin, RTLD_LAZY | RTLD_GLOBAL), nullptr) << dlerror();
    }
  }

  SeparationTest() : target(restlessNoise(70, START)), other(restlessNoise(80, 0)) {
    std::vector<float> mixture(MICROPHONES.size() * SAMPLES);
    for (std::size_t m = 0; m < MICROPHONES.size(); ++m) {
      const std::vector<float> a = delayed(target, delayOf(TARGET_AZIMUTH, MICROPHONES[m]));
      const std::vector<float> b = delayed(other, delayOf(OTHER_AZIMUTH, MICROPHONES[m]));
      for (std::size_t n = 0; n < SAMPLES; ++n) mixture[n * MICROPHONES.size() + m] = a[n] + b[n];
    }
    writeSound(folder / "mixture.wav", RATE, MICROPHONES.size(), mixture);
    writeDatabase();
  }

  void writeDatabase() const {
    SofaTransferFunctions data;
    data.samplingRate = RATE;
    data.frequencies = LENGTH / 2 + 1;
    data.title = "plane waves";
    for (const double y : MICROPHONES) data.receiverPositions.push_back({0, y, 0});
    for (const double azimuth : {TARGET_AZIMUTH, OTHER_AZIMUTH, 0.0}) {
      const Audio::Position p = Audio::Direction{azimuth, 0, 1}.position();
      data.sourcePositions.push_back({p.x, p.y, p.z});
      for (const double y : MICROPHONES) {
        for (std::size_t k = 0; k < data.frequencies; ++k) {
          data.values.push_back(
              delayFactor(static_cast<double>(k) * RATE / LENGTH, delayOf(azimuth, y)));
        }
      }
    }
    writeSofa(folder / "tf.sofa", data);
  }

  /// A loop of frames, scene, the given separation (whose last node is named "last") and writer.
  FD::NetworkDocument documentFor(const std::vector<FD::NodeDescription>& separation,
                                  const std::vector<FD::LinkDescription>& links,
                                  const std::string& scene, bool halfFrameShift) const {
    const std::string scenePath = folder.write("scene.json", scene);
    FD::NetworkDescription loop{"LOOP", "iterator"};
    loop.nodes = {
        withLayout("frames", "AudioFrames", {{"FILENAME", "string", folder / "mixture.wav"}}),
        withLayout("scene", "SceneSources",
                   {{"FILENAME", "string", scenePath}, {"INACTIVE_AS_NOISE", "bool", "true"}}),
        withLayout("writer", "SeparatedWriter",
                   {{"DIRECTORY", "string", folder / "out"},
                    {"FORMAT", "string", "FLOAT"},
                    {"OVERWRITE", "bool", "true"},
                    {"HALF_FRAME_SHIFT", "bool", halfFrameShift ? "true" : "false"}})};
    loop.nodes.insert(loop.nodes.end(), separation.begin(), separation.end());
    loop.links = {{"last", "OUTPUT", "writer", "INPUT"},
                  {"scene", "SOURCES", "writer", "SOURCES"},
                  {"frames", "SAMPLES", "writer", "SAMPLES"},
                  {"frames", "LAST_FRAME", "writer", "LAST_FRAME"}};
    loop.links.insert(loop.links.end(), links.begin(), links.end());
    loop.outputs = {{"OUTPUT", "writer", "OUTPUT"}};
    loop.condition = FD::TerminalDescription{"CONDITION", "frames", "NOT_EOF"};
    const FD::NetworkDescription main{"MAIN", "subnet", {{"loop", "LOOP"}},
                                      {},     {},       {{"OUTPUT", "loop", "OUTPUT"}}};
    return {"test", {main, loop}};
  }

  std::vector<float> run(const FD::NetworkDocument& document, int id) const {
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(FD::runNetwork(document, {}, out, err), 0) << err.str();
    return readSound(folder / ("out/source_" + std::to_string(id) + ".wav")).samples;
  }

  FD::ParameterDescription database() const {
    return {"TF_CONJ_FILENAME", "string", folder / "tf.sofa"};
  }

  const TestFolder folder;
  const std::vector<float> target;
  const std::vector<float> other;
};

const std::string BOTH = R"({"sources": [{"id": 0, "azimuth": 40}, {"id": 1, "azimuth": -50}]})";
const std::string LATE = R"({"sources": [{"id": 0, "azimuth": 40, "active": [[2, 9]]}]})";

TEST_F(SeparationTest, NullBeamforming) {
  const FD::NetworkDocument document = documentFor(
      {withLayout("last", "BeamForming", {{"BF_METHOD", "string", "NULL"}, database()})},
      {{"frames", "OUTPUT", "last", "INPUT_FRAMES"}, {"scene", "SOURCES", "last", "INPUT_SOURCES"}},
      BOTH, false);
  EXPECT_GT(purity(run(document, 0), target), 20);
  EXPECT_GT(purity(run(document, 1), other), 20);
  EXPECT_LT(purity(run(document, 0), other), -20);
}

TEST_F(SeparationTest, MaximumLikelihoodWithNoiseFromTheRecording) {
  const auto documentWith = [&](bool halfFrameShift) {
    return documentFor({withLayout("last", "ML", {database(), {"REG_FACTOR", "float", "0.001"}}),
                        withLayout("noise", "NoiseCorrelation",
                                   {{"MODE", "string", "RANGES"},
                                    {"FILENAME", "string", folder / "mixture.wav"},
                                    {"RANGES", "string", "0-1.9"}})},
                       {{"frames", "OUTPUT", "last", "INPUT_FRAMES"},
                        {"scene", "SOURCES", "last", "INPUT_SOURCES"},
                        {"noise", "OUTPUT", "last", "INPUT_NOISE_CM"}},
                       LATE, halfFrameShift);
  };
  EXPECT_GT(purity(run(documentWith(true), 0), target), 15);
  EXPECT_LT(purity(run(documentWith(false), 0), target), 0);
}

TEST_F(SeparationTest, MaximumLikelihoodWithARunningMean) {
  const FD::NetworkDocument document =
      documentFor({withLayout("last", "ML", {database(), {"REG_FACTOR", "float", "0.001"}}),
                   withLayout("noise", "NoiseCorrelation", {{"MODE", "string", "RUNNING"}})},
                  {{"frames", "OUTPUT", "last", "INPUT_FRAMES"},
                   {"scene", "SOURCES", "last", "INPUT_SOURCES"},
                   {"noise", "OUTPUT", "last", "INPUT_NOISE_CM"},
                   {"frames", "OUTPUT", "noise", "INPUT"},
                   {"scene", "SOURCES", "noise", "SOURCES"}},
                  LATE, true);
  EXPECT_GT(purity(run(document, 0), target), 15);
}

// Its output has an arbitrary scale per bin, which is no sound before it is projected back.
TEST_F(SeparationTest, MaximumSignalToNoiseRatioProjectedBack) {
  const FD::NetworkDocument document = documentFor(
      {withLayout("msnr", "MSNR",
                  {{"ALPHA", "float", "0.99"}, {"DECOMPOSITION_ALGORITHM", "string", "GEVD"}}),
       {"last", "BackProjection", {{"LENGTH", "int", std::to_string(LENGTH)}}}},
      {{"frames", "OUTPUT", "msnr", "INPUT_FRAMES"},
       {"scene", "SOURCES", "msnr", "INPUT_SOURCES"},
       {"scene", "NOISE_SOURCES", "msnr", "INPUT_NOISE_SOURCES"},
       {"msnr", "OUTPUT", "last", "INPUT"},
       {"frames", "OUTPUT", "last", "INPUT_FRAMES"},
       {"scene", "SOURCES", "last", "SOURCES"}},
      LATE, false);
  const std::vector<float> image = delayed(target, delayOf(TARGET_AZIMUTH, MICROPHONES[0]));
  const std::vector<float> sound = run(document, 0);
  const std::vector<float> mixture = readSound(folder / "mixture.wav").samples;
  std::vector<float> first;
  for (std::size_t n = 0; n < SAMPLES; ++n) first.push_back(mixture[n * MICROPHONES.size()]);
  EXPECT_GT(purity(sound, image), purity(first, image) + 8);
}

}  // namespace
