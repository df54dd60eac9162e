// Whole runs into SeparatedWriter: what is written, and what is left however a run ends.

#include <filesystem>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Iterator.h"
#include "gmock/gmock.h"
#include "tests/support/AudioTesting.h"
#include "tests/toolbox/Layout.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// A loop over AudioFrames whose stand-in for a separation gives the first microphone's spectrum to
/// ids that a function names per frame, or throws.
class Separation {
 public:
  using IdsAt = std::function<std::set<int>(int frame)>;

  Separation(const Parameters& framesParameters, const Parameters& writerParameters, IdsAt idsAt)
      : loop(new FD::Iterator("loop", FD::ParameterSet())) {
    loop->addNode(makeNode("AudioFrames", framesParameters, "frames"));
    add(new Separator(std::move(idsAt)));
    loop->addNode(makeNode("SeparatedWriter", writerParameters, "writer"));
    loop->connect("separator", "INPUT_FRAMES", "frames", "OUTPUT");
    loop->connect("writer", "INPUT", "separator", "OUTPUT");
    loop->bindOutput("OUTPUT", "writer", "OUTPUT");
    loop->bindCondition("frames", "NOT_EOF");
  }

  void add(FD::Node* node) { loop->addNode(FD::RCPtr<FD::Node>(node)); }

  Separation& linkLength() {
    loop->connect("writer", "SAMPLES", "frames", "SAMPLES");
    loop->connect("writer", "LAST_FRAME", "frames", "LAST_FRAME");
    return *this;
  }

  /// outerCount: a count of its own for each run.
  void run(int lastFrame = -1, int outerCount = 0) {
    loop->setFrameHook([lastFrame](int frame) { return frame != lastFrame; });
    loop->request(0, FD::ParameterSet());
    loop->initialize();
    loop->getOutput(0, outerCount);
  }

  FD::RCPtr<FD::Iterator> loop;

 private:
  class Separator : public FD::BufferedNode {
   public:
    explicit Separator(IdsAt function)
        : FD::BufferedNode("separator", FD::ParameterSet()), idsAt(std::move(function)) {
      addInput("INPUT_FRAMES");
      addOutput("OUTPUT");
    }

   protected:
    void calculate(int, int count, FD::Buffer& out) override {
      const FD::ObjectRef input = getInput(0, count);
      const auto& frame = FD::object_cast<SpectrumMatrix>(input);
      auto* map = new SpectrumMap;
      out[count] = FD::ObjectRef(map);
      for (const int id : idsAt(count)) {
        auto* spectrum = new SpectrumVector(frame.ncols());
        map->insert({id, FD::ObjectRef(spectrum)});
        for (std::size_t k = 0; k < frame.ncols(); ++k) (*spectrum)[k] = frame(0, k);
      }
    }

   private:
    IdsAt idsAt;
  };
};

/// A recording in a folder, and parameters to read it and to write to "out" beside it.
class RunTest : public testing::Test {
 protected:
  RunTest() : sound(noise(1000, 50)) { writeSound(folder / "in.wav", RATE, 1, sound); }

  Parameters framesParameters() const {
    return withLayout({{"FILENAME", text(folder / "in.wav")}});
  }
  Parameters writerParameters(const Parameters& others = {}) const {
    Parameters all = withLayout({{"DIRECTORY", text(folder / "out")}, {"FORMAT", text("FLOAT")}});
    all.insert(all.end(), others.begin(), others.end());
    return all;
  }
  std::vector<std::string> written() const { return folder.names("out"); }
  std::vector<float> source(int id) const {
    return readSound(folder / ("out/source_" + std::to_string(id) + ".wav")).samples;
  }
  /// The recording's first samples, which are complete after so many frames.
  std::vector<float> soundOf(int frames) const {
    return {sound.begin(), sound.begin() + frames * ADVANCE - (LENGTH - ADVANCE)};
  }

  const TestFolder folder;
  const std::vector<float> sound;
};

std::set<int> always(int) { return {2}; }

// A second run starts anew.
TEST_F(RunTest, WritesTheRecordingSampleBySample) {
  Separation separation(framesParameters(), writerParameters({{"OVERWRITE", truth(true)}}), always);
  separation.linkLength();
  for (int run = 0; run < 2; ++run) {
    separation.run(-1, run);
    EXPECT_THAT(written(), ElementsAre("source_2.wav", "timeline.json"));  // no end of the network
    EXPECT_LT(differenceInDb(source(2), sound), -100);
    std::filesystem::remove_all(folder / "out/source_2.wav");
  }
}

TEST_F(RunTest, WithoutLinksTheNetworksEndCompletesTheFiles) {
  {
    Separation separation(framesParameters(), writerParameters(), always);
    separation.run();
    EXPECT_THAT(written(), IsEmpty());
  }
  EXPECT_THAT(written(), ElementsAre("source_2.wav", "timeline.json"));
  std::vector<float> out = source(2);
  ASSERT_EQ(out.size(), 66U * ADVANCE);  // to the end of the last frame
  out.resize(sound.size());
  EXPECT_LT(differenceInDb(out, sound), -100);
}

TEST_F(RunTest, ARunThatEndsBeforeTheLastFrameLeavesWhatIsCompleteOrNothing) {
  for (const bool isStopped : {false, true}) {
    Separation separation(framesParameters(), writerParameters(), always);
    separation.linkLength().run(29);
    EXPECT_THAT(written(), IsEmpty());
    if (!isStopped) {
      separation.loop->cleanupNotify();
      EXPECT_THAT(written(), IsEmpty());
      continue;
    }
    separation.loop->stop();
    EXPECT_THAT(written(), ElementsAre("source_2.wav", "timeline.json"));
    EXPECT_LT(differenceInDb(source(2), soundOf(30)), -100);
  }
}

TEST_F(RunTest, AnErrorLeavesNothing) {
  const auto failing = [](int frame) -> std::set<int> {
    if (frame == 40) throw std::runtime_error("separation failed");
    return {2};
  };
  for (const bool withLength : {false, true}) {
    {
      Separation separation(framesParameters(), writerParameters(), failing);
      if (withLength) separation.linkLength();
      EXPECT_THROW(separation.run(), std::runtime_error);
      separation.loop->stop();
      separation.loop->cleanupNotify();
    }
    EXPECT_THAT(written(), IsEmpty());
  }
}

// MSNR gives out a source that is not active, too, and the noise sources.
TEST_F(RunTest, WritesTargetsOnlyWhileTheyAreActive) {
  Separation separation(framesParameters(), writerParameters(), [](int) {
    return std::set<int>{1, 2, 99};
  });
  separation.add(new Stub(
      "scene", {{"SOURCES", [](int frame) {
                   return sourcesWithIds(frame < 30 ? std::set<int>{1} : std::set<int>{1, 2});
                 }}}));
  separation.loop->connect("writer", "SOURCES", "scene", "SOURCES");
  separation.linkLength().run();
  EXPECT_THAT(written(), ElementsAre("source_1.wav", "source_2.wav", "timeline.json"));
  EXPECT_LT(differenceInDb(source(1), sound), -100);
  const std::vector<float> out = source(2);
  ASSERT_EQ(out.size(), sound.size());
  for (std::size_t n = 0; n < soundOf(30).size(); ++n) ASSERT_EQ(out[n], 0.0F) << n;
  for (std::size_t n = 30 * ADVANCE; n < out.size(); ++n) ASSERT_NEAR(out[n], sound[n], 1e-5) << n;
}

TEST_F(RunTest, ReportsClippedSamples) {
  std::vector<float> loud(1000, 0.5F);
  loud[300] = 1.5F;
  writeSound(folder / "in.wav", RATE, 1, loud);
  testing::internal::CaptureStderr();
  Separation separation(framesParameters(), writerParameters({{"FORMAT", text("PCM_16")}}), always);
  separation.linkLength().run();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "SeparatedWriter: " + (folder / "out/source_2.wav") +
                ": 1 samples were clipped; the largest was 1.5 times full scale: a recording "
                "softer by 3.6 dB "
                "would fit, and the format FLOAT keeps them\n");
}

TEST_F(RunTest, RefusesSpectraOfAnotherLength) {
  Separation separation(framesParameters(), writerParameters({{"LENGTH", number(128)}}), always);
  EXPECT_THAT(thrownText([&] { separation.run(); }),
              HasSubstr("The spectrum of source 2 has 33 bins, expected LENGTH/2+1 = 65."));
}

}  // namespace
