// Each node by itself: what it hands on, what it refuses, that a second run starts anew.

#include <complex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "gmock/gmock.h"
#include "tests/support/AudioTesting.h"
#include "tests/toolbox/Layout.h"

using testing::HasSubstr;

namespace {

/// A started node, linked to the like-named outputs of a stub where that has them.
struct Linked {
  Linked(const std::string& type, const Parameters& parameters,
         std::vector<std::pair<std::string, Stub::Output>> inputs = {})
      : node(makeNode(type, parameters)), stub("stub", inputs) {
    for (const auto& [name, unused] : inputs) node->connectToNode(name, &stub, name);
    node->initialize();
  }
  FD::ObjectRef output(const std::string& name, int count) {
    return node->getOutput(node->translateOutput(name), count);
  }

  NodePtr node;
  Stub stub;
};

/// Two microphones; what they hear changes from frame to frame.
FD::ObjectRef frameOf(int count) {
  auto* frame = new SpectrumMatrix(2, BINS);
  for (int k = 0; k < BINS; ++k) {
    (*frame)(0, k) = std::complex<float>(3.0F, static_cast<float>(count));
    (*frame)(1, k) = 2.0F + static_cast<float>(k * count);
  }
  return FD::ObjectRef(frame);
}

/// Sources 1 and 2, separated.
FD::ObjectRef mapOf(int bins) {
  auto* map = new SpectrumMap;
  for (const int id : {1, 2}) {
    map->insert({id, FD::ObjectRef(new SpectrumVector(static_cast<std::size_t>(bins), 2.0F))});
  }
  return FD::ObjectRef(map);
}

std::string printed(const FD::ObjectRef& object) {
  std::ostringstream out;
  object->printOn(out);
  return out.str();
}

TEST(SceneSources, ListsWhoIsActiveAtTheFramesCentre) {
  const TestFolder folder;
  const std::string scene = folder.write("scene.json", R"({
      "sources": [{"id": 1, "position": [1, 2, 3], "active": [[0, 0.1]]},
                  {"id": 2, "position": [4, 0, 0], "active": [[0.1, 9]]}],
      "noise": [{"id": 3, "position": [5, 0, 0]}]})");
  const std::string first = "<Source 1 1 2 3 >", second = "<Source 2 4 0 0 >";
  const std::string noise = "<Source 3 5 0 0 >";
  const struct {
    bool inactiveAsNoise;
    int frame;
    std::string sources, noiseSources;
  } cases[] = {{false, 7, first, noise},  // the centre of frame f is sample 16 f - 16
               {false, 8, second, noise},
               {true, 0, first, noise + " " + second},
               {true, 8, second, noise + " " + first}};
  for (const auto& [inactiveAsNoise, frame, sources, noiseSources] : cases) {
    Linked node("SceneSources", withLayout({{"FILENAME", text(scene)},
                                            {"INACTIVE_AS_NOISE", truth(inactiveAsNoise)}}));
    EXPECT_THAT(printed(node.output("SOURCES", frame)), HasSubstr(" " + sources + " >"));
    EXPECT_THAT(printed(node.output("NOISE_SOURCES", frame)), HasSubstr(" " + noiseSources + " >"));
  }
}

TEST(NoiseCorrelation, OfAWholeFileIsTheSameAtEveryFrame) {
  const TestFolder folder;
  writeSound(folder / "in.wav", RATE, 3, noise(3 * 1000, 53));
  Linked node("NoiseCorrelation", withLayout({{"MODE", text("FILE")},
                                              {"FILENAME", text(folder / "in.wav")},
                                              {"CHANNELS", text("1,3")}}));
  const FD::ObjectRef first = node.output("OUTPUT", 1);
  EXPECT_EQ(node.output("OUTPUT", 5).get(), first.get());
  const auto& R = FD::object_cast<SpectrumMatrix>(first);
  ASSERT_EQ(std::pair(R.nrows(), R.ncols()), std::pair(std::size_t{BINS}, std::size_t{4}));
  for (std::size_t k = 0; k < BINS; ++k) {  // normalised to a mean diagonal of 1, plus loading
    EXPECT_NEAR((R(k, 0) + R(k, 3)).real(), 2 * 1.001, 1e-5);
    EXPECT_EQ(R(k, 1), std::conj(R(k, 2)));
  }
}

TEST(Nodes, RememberNothingOfAFormerRun) {
  const std::vector<std::pair<std::string, Stub::Output>> inputs = {
      {"INPUT_FRAMES", frameOf},
      {"INPUT", [](int) { return mapOf(BINS); }},
      {"SOURCES",
       [](int count) { return sourcesWithIds(count > 1 ? std::set<int>{} : std::set{2}); }}};
  Linked nodes[] = {
      {"BackProjection", {{"LENGTH", number(LENGTH)}, {"REFERENCE", number(2)}}, inputs},
      {"NoiseCorrelation",
       withLayout({{"MODE", text("RUNNING")}}),
       {{"INPUT", frameOf}, inputs[2]}}};
  for (Linked& linked : nodes) {
    std::vector<std::string> runs[2];
    for (std::vector<std::string>& run : runs) {
      for (int count = 0; count < 5; ++count)
        run.push_back(printed(linked.output("OUTPUT", count)));
      linked.node->reset();
    }
    EXPECT_EQ(runs[1], runs[0]);
    EXPECT_NE(runs[0][4], runs[0][0]);  // or there would be nothing to remember
  }
}

TEST(Nodes, NameWhatIsWrong) {
  const TestFolder folder;
  writeSound(folder / "in.wav", RATE, 2, noise(200, 51));
  const std::string scene = folder.write("scene.json", R"({"sources": [{"id": 0}]})");
  const Parameter file = {"FILENAME", text(folder / "in.wav")};
  const Parameter running = {"MODE", text("RUNNING")};
  const struct {
    std::string type;
    Parameters parameters;
    std::string message;
  } cases[] = {
      {"AudioFrames", {}, "Missing parameter: FILENAME"},
      {"AudioFrames", {{"FILENAME", text("/no.wav")}}, "/no.wav: cannot be read as an audio file"},
      {"AudioFrames", {file, {"LENGTH", number(0)}}, "LENGTH is 0, expected 1 to 16777216 samples"},
      {"AudioFrames", {file, {"ADVANCE", number(65)}}, "ADVANCE is 65, expected 1 to LENGTH = 64"},
      {"AudioFrames", {file, {"SAMPLING_RATE", number(0)}}, "SAMPLING_RATE is 0, expected 1 to "},
      {"AudioFrames", {file, {"SAMPLING_RATE", number(8000)}}, "is 1000 Hz, expected 8000 Hz"},
      {"AudioFrames", {file, {"WINDOW", text("KAISER")}}, "WINDOW is \"KAISER\", expected HANN, "},
      {"AudioFrames", {file, {"CHANNELS", text("3")}}, "\"3\" does not fit a file whose channels "},
      {"AudioFrames", {file, {"NON_FINITE", text("DROP")}}, "\"DROP\", expected ZERO or KEEP"},
      {"AudioStream", {{"RAW", text("S16_LE")}}, "RAW is \"S16_LE\", expected ENCODING,CHANNELS,"},
      {"AudioStream", {{"FILENAME", text("/no.fifo")}}, "/no.fifo: cannot be "},
      {"SceneSources", {{"FILENAME", text(scene)}}, scene + ": /sources/0: found no position"},
      {"NoiseCorrelation", {{"MODE", text("MEAN")}}, "\"MEAN\", expected RANGES, FILE or RUNNING"},
      {"NoiseCorrelation", {{"MODE", text("FILE")}}, "FILENAME is empty, expected a recording for"},
      {"NoiseCorrelation", {file}, "RANGES is \"\": found \"\", expected seconds begin-end"},
      {"NoiseCorrelation", {{"LOADING", real(-1)}}, "LOADING is -1, expected 0 or more"},
      {"NoiseCorrelation", {running, {"FORGETTING", real(2)}}, "FORGETTING is 2, expected 0 to 1"},
      {"NoiseCorrelation", {running}, "INPUT is not connected."},
      {"MaskRefinement", {{"MEMORY", real(0)}}, "MEMORY is 0, expected a number above 0"},
      {"MaskRefinement", {{"LOADING", real(0)}}, "LOADING is 0, expected a number above 0"},
      {"MaskRefinement", {{"POST_MASK", real(1.5F)}}, "POST_MASK is 1.5, expected 0 to 1"},
      {"MaskRefinement", {{"REFERENCE", number(0)}}, "0, expected a microphone's number from 1"},
      {"MVDR", {{"FILENAME", text("/no.sofa")}}, "/no.sofa"},
      {"MVDR", {{"LOADING", real(0)}}, "LOADING is 0, expected a number above 0"},
      {"MVDR", {{"FRAMES", number(17)}}, "FRAMES is 17, expected 1 to 16"},
      {"BackProjection", {{"REFERENCE", number(0)}}, "0, expected a microphone's number from 1"},
      {"BackProjection",
       {{"REFERENCE", number(3)}},
       "INPUT_FRAMES has 2 microphones and 33 bins, expected REFERENCE = 3 or more"},
      {"BackProjection", {}, "The spectrum of source 1 has 5 bins, expected LENGTH/2+1 = 33."}};
  for (const auto& [type, parameters, message] : cases) {
    std::vector<std::pair<std::string, Stub::Output>> inputs;
    if (type == "BackProjection") {
      inputs = {{"INPUT", [](int) { return mapOf(5); }}, {"INPUT_FRAMES", frameOf}};
    }
    const auto run = [&, &t = type, &p = parameters] {
      Linked(t, withLayout(p), inputs).node->getOutput(0, 0);
    };
    EXPECT_THAT(thrownText(run), HasSubstr(message)) << type;
  }
}

}  // namespace
