// Each node by itself: what it hands on, what it refuses.

#include <algorithm>
#include <complex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "AudioFrames.h"
#include "AudioTesting.h"
#include "BackProjectionNode.h"
#include "Iterator.h"
#include "NodeTesting.h"
#include "NoiseCorrelationNode.h"
#include "SceneSources.h"
#include "gtest/gtest.h"
#include "toolbox/core/FrameReader.h"

using testing::HasSubstr;

namespace {

// ---- AudioFrames

TEST(AudioFramesTest, FramesEndWithTheRecording) {
  const TestFolder folder;
  writeSound(folder / "in.wav", RATE, 1, noise(1000, 50));
  AudioFrames frames("frames", withLayout({{"FILENAME", text(folder / "in.wav")}}));
  frames.initialize();
  int samples = 0;
  const int last = 66 - 1;  // (1000 + 64 - 1) / 16 frames
  for (int f = 0; f <= last + 3; ++f) {
    const auto output = [&](const char* name) {
      return frames.getOutput(frames.translateOutput(name), f);
    };
    const bool exists = FD::dereference_cast<bool>(output("NOT_EOF"));
    EXPECT_EQ(exists, f <= last) << f;
    EXPECT_EQ(FD::dereference_cast<bool>(output("LAST_FRAME")), f == last) << f;
    samples += FD::dereference_cast<int>(output("SAMPLES"));
    const auto& spectra = FD::object_cast<SpectrumMatrix>(output("OUTPUT"));
    EXPECT_EQ(spectra.nrows(), 1U);
    EXPECT_EQ(spectra.ncols(), static_cast<std::size_t>(BINS));
  }
  EXPECT_EQ(samples, 1000);
}

TEST(AudioFramesTest, ARecordingWithoutSamplesHasNoFrames) {
  const TestFolder folder;
  writeSound(folder / "in.wav", RATE, 2, {});
  AudioFrames frames("frames", withLayout({{"FILENAME", text(folder / "in.wav")}}));
  frames.initialize();
  EXPECT_FALSE(FD::dereference_cast<bool>(frames.getOutput(frames.translateOutput("NOT_EOF"), 0)));
}

TEST(AudioFramesTest, RefusesBadParametersAndFiles) {
  const TestFolder folder;
  writeSound(folder / "in.wav", RATE, 2, noise(200, 51));
  const auto fault = [&](const Parameters& others) {
    FD::ParameterSet set = withLayout({{"FILENAME", text(folder / "in.wav")}});
    for (const auto& [name, value] : others) set.add(name, value);
    return faultOf([&] { FD::RCPtr<AudioFrames> node(new AudioFrames("frames", set)); });
  };
  EXPECT_THAT(fault({{"FILENAME", text("/no.wav")}}), HasSubstr("/no.wav: cannot be read"));
  EXPECT_THAT(fault({{"LENGTH", number(0)}}), HasSubstr("LENGTH is 0, expected 1 to"));
  EXPECT_THAT(fault({{"ADVANCE", number(65)}}), HasSubstr("ADVANCE is 65"));
  EXPECT_THAT(fault({{"SAMPLING_RATE", number(0)}}), HasSubstr("SAMPLING_RATE is 0, expected 1"));
  EXPECT_THAT(fault({{"SAMPLING_RATE", number(8000)}}),
              HasSubstr("the sampling rate is 1000 Hz, expected 8000 Hz (set RESAMPLE"));
  EXPECT_THAT(fault({{"WINDOW", text("KAISER")}}), HasSubstr("WINDOW is \"KAISER\""));
  EXPECT_THAT(fault({{"CHANNELS", text("3")}}), HasSubstr("\"3\" does not fit"));
  EXPECT_THAT(fault({{"NON_FINITE", text("DROP")}}), HasSubstr("NON_FINITE is \"DROP\""));
  EXPECT_THAT(faultOf([] { AudioFrames("frames", FD::ParameterSet()); }),
              HasSubstr("Missing parameter: "));
}

// ---- SceneSources

TEST(SceneSourcesTest, ListsWhoIsActiveAtTheFramesCentre) {
  const TestFolder folder;
  const std::string scene = folder.write("scene.json", R"({
      "sources": [{"id": 1, "position": [1, 2, 3], "active": [[0, 0.1]]},
                  {"id": 2, "azimuth": 0, "active": [[0.1, 9]]}],
      "noise": [{"id": 3, "azimuth": 0}]})");
  const auto listsAt = [&](bool inactiveAsNoise, int frame) {
    SceneSources node("scene", withLayout({{"FILENAME", text(scene)},
                                           {"INACTIVE_AS_NOISE", truth(inactiveAsNoise)}}));
    node.initialize();
    return std::pair{ids(node.getOutput(node.translateOutput("SOURCES"), frame)),
                     ids(node.getOutput(node.translateOutput("NOISE_SOURCES"), frame))};
  };
  using Lists = std::pair<std::vector<int>, std::vector<int>>;
  // The centre of frame f is sample 16 f - 16: at 0.1 s there is none, frame 7 is before.
  EXPECT_EQ(listsAt(false, 7), (Lists{{1}, {3}}));
  EXPECT_EQ(listsAt(false, 8), (Lists{{2}, {3}}));
  EXPECT_EQ(listsAt(true, 0), (Lists{{1}, {3, 2}}));
  EXPECT_EQ(listsAt(true, 8), (Lists{{2}, {3, 1}}));

  SceneSources node("scene", withLayout({{"FILENAME", text(scene)}}));
  node.initialize();
  const FD::ObjectRef list = node.getOutput(node.translateOutput("SOURCES"), 0);
  const auto& source = FD::object_cast<FD::Source>(FD::object_cast<SourceList>(list)[0]);
  EXPECT_EQ(std::vector({source.x, source.y, source.z}), std::vector({1.0F, 2.0F, 3.0F}));
}

TEST(SceneSourcesTest, NamesWhatIsWrongWithTheFile) {
  const TestFolder folder;
  const std::string path = folder.write("scene.json", R"({"sources": [{"id": 0}]})");
  EXPECT_THAT(faultOf([&] {
                SceneSources("scene", withLayout({{"FILENAME", text(path)}}));
              }),
              HasSubstr(path + ": /sources/0: found no position"));
}

// ---- NoiseCorrelation

/// A node that pulls the noise from frame 1 on, as ML does.
class LateReader : public FD::BufferedNode {
 public:
  LateReader() : FD::BufferedNode("late", FD::ParameterSet()) {
    addInput("FRAMES");
    addInput("NOISE");
    addOutput("OUTPUT");
    inOrder = true;
  }

 protected:
  void calculate(int, int count, FD::Buffer& out) override {
    getInput(0, count);
    out[count] = count > 0 ? getInput(1, count) : FD::nilObject;
  }
};

TEST(NoiseCorrelationNodeTest, LearnsInFramesWithoutTargets) {
  const TestFolder folder;
  writeSound(folder / "in.wav", RATE, 2, noise(2 * 1000, 52));
  FD::RCPtr<FD::Iterator> loop(new FD::Iterator("loop", FD::ParameterSet()));
  const auto add = [&](FD::Node* node) { loop->addNode(FD::RCPtr<FD::Node>(node)); };
  add(new AudioFrames("frames", withLayout({{"FILENAME", text(folder / "in.wav")}})));
  add(new Stub("scene", {{"SOURCES", [](int frame) {
                            return sourceList(frame >= 20 ? std::set<int>{1} : std::set<int>{});
                          }}}));
  add(new NoiseCorrelation("noise", withLayout({{"MODE", text("RUNNING")},
                                                {"FORGETTING", fraction(1.0F)},
                                                {"LOADING", fraction(0.0F)},
                                                {"NORMALIZE", truth(false)}})));
  add(new LateReader);
  loop->connect("noise", "INPUT", "frames", "OUTPUT");
  loop->connect("noise", "SOURCES", "scene", "SOURCES");
  loop->connect("late", "FRAMES", "frames", "OUTPUT");
  loop->connect("late", "NOISE", "noise", "OUTPUT");
  loop->bindOutput("OUTPUT", "late", "OUTPUT");
  loop->bindCondition("frames", "NOT_EOF");
  loop->request(0, FD::ParameterSet());
  loop->initialize();
  const FD::ObjectRef result = loop->getOutput(0, 0);
  const auto& R = FD::object_cast<SpectrumMatrix>(result);
  ASSERT_EQ(R.nrows(), static_cast<std::size_t>(BINS));
  ASSERT_EQ(R.ncols(), 4U);

  // The mean of frames 0 to 19, the first of which ML did not ask for.
  Audio::FrameReader reader(Audio::AudioReader(folder / "in.wav"),
                            Audio::FrameLayout(LENGTH, ADVANCE), Audio::WindowType::Hann);
  std::vector<std::complex<double>> sum(BINS);
  while (reader.next() && reader.frame() < 20) {
    for (std::size_t k = 0; k < BINS; ++k) {
      sum[k] += std::complex<double>(reader.spectra()[k]) *
                std::conj(std::complex<double>(reader.spectra()[BINS + k]));
    }
  }
  for (std::size_t k = 0; k < BINS; ++k) {
    EXPECT_NEAR(std::abs(std::complex<double>(R(k, 1)) - sum[k] / 20.0), 0, 1e-6) << k;
  }
}

TEST(NoiseCorrelationNodeTest, FilesGiveTheSameMatricesAtEveryFrame) {
  const TestFolder folder;
  writeSound(folder / "in.wav", RATE, 3, noise(3 * 1000, 53));
  for (const bool isWhole : {false, true}) {
    NoiseCorrelation node("noise", withLayout({{"MODE", text(isWhole ? "FILE" : "RANGES")},
                                               {"FILENAME", text(folder / "in.wav")},
                                               {"CHANNELS", text("1,3")},
                                               {"RANGES", text("0.1-0.5")}}));
    node.initialize();
    const FD::ObjectRef first = node.getOutput(0, 1);
    EXPECT_EQ(node.getOutput(0, 5).get(), first.get());
    const auto& R = FD::object_cast<SpectrumMatrix>(first);
    ASSERT_EQ(R.nrows(), static_cast<std::size_t>(BINS));
    ASSERT_EQ(R.ncols(), 4U);
    for (std::size_t k = 0; k < BINS; ++k) {  // normalised to a mean diagonal of 1, plus loading
      EXPECT_NEAR((R(k, 0) + R(k, 3)).real(), 2 * 1.001, 1e-5);
      EXPECT_EQ(R(k, 1), std::conj(R(k, 2)));
    }
  }
}

TEST(NoiseCorrelationNodeTest, RefusesBadParametersAndMissingLinks) {
  const auto fault = [&](const Parameters& others) {
    return faultOf([&] { NoiseCorrelation("noise", withLayout(others)); });
  };
  EXPECT_THAT(fault({{"MODE", text("MEDIAN")}}),
              HasSubstr("MODE is \"MEDIAN\", expected RANGES, FILE or RUNNING"));
  EXPECT_THAT(fault({{"MODE", text("FILE")}}),
              HasSubstr("FILENAME is empty, expected a recording for MODE FILE"));
  EXPECT_THAT(fault({{"FILENAME", text("x.wav")}}), HasSubstr("RANGES is \"\""));
  EXPECT_THAT(fault({{"LOADING", fraction(-1)}}), HasSubstr("LOADING is -1, expected 0 or more"));
  EXPECT_THAT(fault({{"MODE", text("RUNNING")}, {"FORGETTING", fraction(2)}}),
              HasSubstr("FORGETTING is 2, expected 0 to 1"));
  NoiseCorrelation unlinked("noise", withLayout({{"MODE", text("RUNNING")}}));
  unlinked.initialize();
  EXPECT_THAT(faultOf([&] { unlinked.getOutput(0, 0); }), HasSubstr("INPUT is not connected."));
}

// ---- BackProjection

/// A map with one spectrum of equal values for each id.
FD::ObjectRef mapOf(const std::vector<int>& mapIds, std::complex<float> value, int bins = BINS) {
  auto* map = new SpectrumMap;
  for (const int id : mapIds) {
    auto* spectrum = new SpectrumVector(static_cast<std::size_t>(bins));
    std::fill(spectrum->begin(), spectrum->end(), value);
    map->insert({id, FD::ObjectRef(spectrum)});
  }
  return FD::ObjectRef(map);
}

FD::ObjectRef frameOf(const std::vector<std::complex<float>>& microphones) {
  auto* frame = new SpectrumMatrix(microphones.size(), BINS);
  for (std::size_t i = 0; i < microphones.size(); ++i) {
    for (std::size_t k = 0; k < BINS; ++k) (*frame)(i, k) = microphones[i];
  }
  return FD::ObjectRef(frame);
}

TEST(BackProjectionNodeTest, ScalesToTheReferenceAndLearnsFromActiveFrames) {
  Stub inputs("inputs", {{"MAP",
                          [](int) {
                            return mapOf({1, 2}, 2.0F);
                          }},
                         {"FRAMES",
                          [](int frame) {
                            return frameOf({100.0F, frame == 0 ? 6.0F : 50.0F});
                          }},
                         {"SOURCES", [](int frame) {
                            return sourceList(frame == 0 ? std::set<int>{1, 2} : std::set<int>{2});
                          }}});
  BackProjection node("back", parameterSet({{"LENGTH", number(LENGTH)},
                                            {"REFERENCE", number(2)},
                                            {"FORGETTING", fraction(0.0F)}}));
  node.connectToNode("INPUT", &inputs, "MAP");
  node.connectToNode("INPUT_FRAMES", &inputs, "FRAMES");
  node.connectToNode("SOURCES", &inputs, "SOURCES");
  node.initialize();
  const auto spectrum = [&](int id, int frame) {
    const FD::ObjectRef map = node.getOutput(0, frame);
    return FD::object_cast<SpectrumVector>(FD::object_cast<SpectrumMap>(map).at(id))[BINS - 1];
  };
  EXPECT_EQ(spectrum(1, 0), 6.0F);
  EXPECT_EQ(spectrum(2, 0), 6.0F);
  EXPECT_EQ(spectrum(1, 1), 6.0F);  // not active: as before
  EXPECT_EQ(spectrum(2, 1), 50.0F);
}

TEST(BackProjectionNodeTest, RefusesShapesThatDoNotFit) {
  const auto fault = [](int reference, int bins) {
    Stub inputs("inputs", {{"MAP", [bins](int) { return mapOf({1}, 1.0F, bins); }},
                           {"FRAMES", [](int) {
                              return frameOf({1.0F, 2.0F});
                            }}});
    return faultOf([&] {
      BackProjection node(
          "back", parameterSet({{"LENGTH", number(LENGTH)}, {"REFERENCE", number(reference)}}));
      node.connectToNode("INPUT", &inputs, "MAP");
      node.connectToNode("INPUT_FRAMES", &inputs, "FRAMES");
      node.initialize();
      node.getOutput(0, 0);
    });
  };
  EXPECT_THAT(fault(0, BINS), HasSubstr("REFERENCE is 0, expected a microphone's number from 1"));
  EXPECT_THAT(fault(3, BINS), HasSubstr("INPUT_FRAMES has 2 microphones and 33 bins, expected"));
  EXPECT_THAT(fault(1, 5), HasSubstr("The spectrum of source 1 has 5 bins, expected"));
}

}  // namespace
