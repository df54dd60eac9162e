// Each node by itself: what it hands on, what it refuses.

#include <algorithm>
#include <complex>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "AudioFrames.h"
#include "BackProjectionNode.h"
#include "MaskRefinementNode.h"
#include "MvdrNode.h"
#include "NodeTesting.h"
#include "NoiseCorrelationNode.h"
#include "SceneSources.h"
#include "audio/FrameReader.h"
#include "gtest/gtest.h"
#include "tests/support/AudioTesting.h"

using testing::HasSubstr;

namespace {

/// On the heap, where the sanitizer sees an exception that reaches for a node that is gone.
template <class NodeType>
void make(const FD::ParameterSet& parameters) {
  const std::unique_ptr<FD::Node> node(new NodeType("node", parameters));
}

// ---- AudioFrames

TEST(AudioFramesTest, FramesEndWithTheRecording) {
  const TestFolder folder;
  // (1000 + 64 - 1) / 16 frames
  for (const auto& [samples, expected] : {std::pair{1000, 66}, std::pair{1, 4}}) {
    writeSound(folder / "in.wav", RATE, 1, noise(static_cast<std::size_t>(samples), 50));
    AudioFrames frames("frames", withLayout({{"FILENAME", text(folder / "in.wav")}}));
    frames.initialize();
    int sum = 0;
    for (int f = 0; f < expected + 3; ++f) {
      const auto output = [&](const char* name) {
        return frames.getOutput(frames.translateOutput(name), f);
      };
      EXPECT_EQ(FD::dereference_cast<bool>(output("NOT_EOF")), f < expected) << f;
      EXPECT_EQ(FD::dereference_cast<bool>(output("LAST_FRAME")), f == expected - 1) << f;
      sum += FD::dereference_cast<int>(output("SAMPLES"));
      const FD::ObjectRef spectra = output("OUTPUT");
      EXPECT_EQ(FD::object_cast<SpectrumMatrix>(spectra).nrows(), 1U);
      EXPECT_EQ(FD::object_cast<SpectrumMatrix>(spectra).ncols(), static_cast<std::size_t>(BINS));
    }
    EXPECT_EQ(sum, samples);
  }
}

TEST(AudioFramesTest, RefusesBadParametersAndFiles) {
  const TestFolder folder;
  writeSound(folder / "in.wav", RATE, 2, noise(200, 51));
  const std::pair<std::pair<const char*, FD::ObjectRef>, const char*> cases[] = {
      {{"FILENAME", text("/no.wav")}, "/no.wav: cannot be read as an audio file: "},
      {{"LENGTH", number(0)}, "LENGTH is 0, expected 1 to 16777216 samples"},
      {{"ADVANCE", number(65)}, "ADVANCE is 65, expected 1 to LENGTH = 64 samples"},
      {{"SAMPLING_RATE", number(0)}, "SAMPLING_RATE is 0, expected 1 to 10000000 Hz"},
      {{"SAMPLING_RATE", number(8000)}, "the sampling rate is 1000 Hz, expected 8000 Hz"},
      {{"WINDOW", text("KAISER")}, "WINDOW is \"KAISER\", expected HANN, HAMMING, SINE or "},
      {{"CHANNELS", text("3")}, "\"3\" does not fit a file whose channels are 1 to 2"},
      {{"NON_FINITE", text("DROP")}, "NON_FINITE is \"DROP\", expected ZERO or KEEP"}};
  for (const auto& [parameter, message] : cases) {
    FD::ParameterSet set = withLayout({{"FILENAME", text(folder / "in.wav")}});
    set.add(parameter.first, parameter.second);
    EXPECT_THAT(faultOf([&] { make<AudioFrames>(set); }), HasSubstr(message));
  }
  EXPECT_THAT(faultOf([] { make<AudioFrames>(FD::ParameterSet()); }),
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

TEST(SceneSourcesTest, RefusesBadScenesAndInputs) {
  const TestFolder folder;
  const std::string path = folder.write("scene.json", R"({"sources": [{"id": 0}]})");
  const auto parameters = withLayout({{"FILENAME", text(path)}});
  EXPECT_THAT(faultOf([&] { make<SceneSources>(parameters); }),
              HasSubstr(path + ": /sources/0: found no position"));
  SceneSources node("scene", withLayout({{"FILENAME", text(ZELK_EXAMPLES "/scene.json")}}));
  EXPECT_THAT(faultOf([&] { node.translateInput("NEVER"); }), HasSubstr("NEVER is not supported."));
}

// ---- NoiseCorrelation

TEST(NoiseCorrelationNodeTest, LearnsInFramesWithoutTargets) {
  const TestFolder folder;
  writeSound(folder / "in.wav", RATE, 2, noise(2 * 1000, 52));
  AudioFrames frames("frames", withLayout({{"FILENAME", text(folder / "in.wav")}}));
  int begin = 20;  // of the target
  Stub scene("scene", {{"SOURCES", [&](int frame) {
                          return sourceList(frame >= begin ? std::set<int>{1} : std::set<int>{});
                        }}});
  NoiseCorrelation node("noise", withLayout({{"MODE", text("RUNNING")},
                                             {"FORGETTING", fraction(1.0F)},
                                             {"LOADING", fraction(0.0F)},
                                             {"NORMALIZE", truth(false)}}));
  node.connectToNode("INPUT", &frames, "OUTPUT");
  node.connectToNode("SOURCES", &scene, "SOURCES");
  node.request(0, FD::ParameterSet());
  frames.initialize();
  node.initialize();
  // ML asks from frame 1 on, when others have pulled frame 0 before.
  FD::ObjectRef result;
  for (int f = 0; f < 40; ++f) {
    frames.getOutput(0, f);
    if (f > 0) result = node.getOutput(0, f);
  }
  const auto& R = FD::object_cast<SpectrumMatrix>(result);
  // The mean of frames 0 to 19, the first of which ML did not ask for.
  Audio::FrameReader reader(Audio::AudioReader(folder / "in.wav"),
                            Audio::FrameLayout(LENGTH, ADVANCE), Audio::WindowType::Hann);
  Audio::NoiseCorrelation expected(2, BINS, 1.0);
  while (reader.next() && reader.frame() < 20) expected.add(reader.spectra().data());
  std::vector<std::complex<float>> matrices(4 * BINS);
  expected.write(0, false, matrices.data());
  for (std::size_t k = 0; k < BINS; ++k) EXPECT_EQ(R(k, 1), matrices[4 * k + 1]) << k;

  begin = 0;  // in a second run, which remembers nothing of the first
  frames.reset();
  node.reset();
  result = node.getOutput(0, 0);
  EXPECT_EQ(FD::object_cast<SpectrumMatrix>(result)(1, 0), 0.0F);
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
  const std::pair<Parameters, const char*> cases[] = {
      {{{"MODE", text("MEDIAN")}}, "MODE is \"MEDIAN\", expected RANGES, FILE or RUNNING"},
      {{{"MODE", text("FILE")}}, "FILENAME is empty, expected a recording for MODE FILE"},
      {{{"FILENAME", text("x.wav")}}, "RANGES is \"\": found \"\", expected seconds begin-end"},
      {{{"LOADING", fraction(-1)}}, "LOADING is -1, expected 0 or more"},
      {{{"MODE", text("RUNNING")}, {"FORGETTING", fraction(2)}},
       "FORGETTING is 2, expected 0 to 1"}};
  for (const auto& [parameters, message] : cases) {
    EXPECT_THAT(faultOf([&] { make<NoiseCorrelation>(withLayout(parameters)); }),
                HasSubstr(message));
  }
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

/// A node with stand-ins for the separation, the frames and the scene.
class BackProjectionNodeTest : public testing::Test {
 protected:
  BackProjection& start(int reference, int bins) {
    inputs = std::make_unique<Stub>(
        "inputs", std::vector<std::pair<std::string, Stub::Output>>{
                      {"MAP",
                       [bins](int) {
                         return mapOf({1, 2}, 2.0F, bins);
                       }},
                      {"FRAMES", [](int f) { return frameOf({100.0F, f == 0 ? 6.0F : 50.0F}); }},
                      {"SOURCES",
                       [this](int f) { return sourceList(f == 0 ? atFirst : std::set<int>{2}); }}});
    node = std::make_unique<BackProjection>("back", parameterSet({{"LENGTH", number(LENGTH)},
                                                                  {"REFERENCE", number(reference)},
                                                                  {"FORGETTING", fraction(0.0F)}}));
    node->connectToNode("INPUT", inputs.get(), "MAP");
    node->connectToNode("INPUT_FRAMES", inputs.get(), "FRAMES");
    node->connectToNode("SOURCES", inputs.get(), "SOURCES");
    node->initialize();
    return *node;
  }

  std::set<int> atFirst = {1, 2};
  std::unique_ptr<Stub> inputs;
  std::unique_ptr<BackProjection> node;
};

TEST_F(BackProjectionNodeTest, ScalesToTheReferenceAndLearnsFromActiveFrames) {
  start(2, BINS);
  const auto spectrum = [&](int id, int frame) {
    const FD::ObjectRef map = node->getOutput(0, frame);
    return FD::object_cast<SpectrumVector>(FD::object_cast<SpectrumMap>(map).at(id))[BINS - 1];
  };
  EXPECT_EQ(spectrum(1, 0), 6.0F);
  EXPECT_EQ(spectrum(2, 0), 6.0F);
  EXPECT_EQ(spectrum(1, 1), 6.0F);  // not active: as before
  EXPECT_EQ(spectrum(2, 1), 50.0F);
  atFirst.clear();  // in a second run, which remembers nothing of the first
  node->reset();
  EXPECT_EQ(spectrum(1, 0), 0.0F);
}

TEST_F(BackProjectionNodeTest, RefusesShapesThatDoNotFit) {
  const struct {
    int reference;
    int bins;
    const char* message;
  } cases[] = {{0, BINS, "REFERENCE is 0, expected a microphone's number from 1"},
               {3, BINS, "INPUT_FRAMES has 2 microphones and 33 bins, expected REFERENCE = 3 or "},
               {1, 5, "The spectrum of source 1 has 5 bins, expected LENGTH/2+1 = 33."}};
  for (const auto& [reference, bins, message] : cases) {
    EXPECT_THAT(faultOf([&, r = reference, b = bins] { start(r, b).getOutput(0, 0); }),
                HasSubstr(message));
  }
}

// ---- MVDR, MaskRefinement (what they compute: tests/separation/NodesAgreementTest.cc)

TEST(MvdrNodesTest, RefuseBadParameters) {
  const std::pair<std::pair<const char*, FD::ObjectRef>, const char*> cases[] = {
      {{"MEMORY", fraction(0.0F)}, "MEMORY is 0, expected a number above 0"},
      {{"LOADING", fraction(0.0F)}, "LOADING is 0, expected a number above 0"},
      {{"POST_MASK", fraction(1.5F)}, "POST_MASK is 1.5, expected 0 to 1"},
      {{"REFERENCE", number(0)}, "REFERENCE is 0, expected a microphone's number from 1"}};
  for (const auto& [parameter, message] : cases) {
    EXPECT_THAT(faultOf([&] { make<MaskRefinement>(withLayout({parameter})); }),
                HasSubstr(message));
  }
  const auto mvdr = [](const Parameters& others) {
    FD::ParameterSet set = parameterSet({{"LENGTH", number(LENGTH)},
                                         {"SAMPLING_RATE", number(RATE)},
                                         {"FILENAME", text("/no.sofa")}});
    for (const auto& [name, value] : others) set.add(name, value);
    return faultOf([&] { make<MVDR>(set); });
  };
  EXPECT_THAT(mvdr({}), HasSubstr("/no.sofa"));
  EXPECT_THAT(mvdr({{"LOADING", fraction(0.0F)}}), HasSubstr("expected a number above 0"));
}

}  // namespace
