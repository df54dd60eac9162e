// `separate` and `run` as a user starts them: from files to files.

#include <filesystem>

#include "gmock/gmock.h"
#include "tests/cli/process/TalkersFixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Separate : public Talkers {
 protected:
  CommandRun separate(const std::string& method, const std::string& output) const {
    return run("separate mix.wav -o " + output + files + "--method " + method);
  }

  void expectSameFiles(const std::string& actual, const std::string& expected) const {
    EXPECT_EQ(filesBelow(actual), filesBelow(expected));
    ASSERT_THAT(filesBelow(expected), testing::SizeIs(3));
    for (const std::string& name : filesBelow(expected)) {
      EXPECT_TRUE(content(actual + "/" + name) == content(expected + "/" + name)) << name;
    }
  }
};

// The database holds the transfer functions of the very responses that made the mixture; nothing
// between the sound files may turn, conjugate, shift or reorder them.
TEST_F(Separate, NullUndoesAMixtureMadeByConvolution) {
  ASSERT_EQ(separate("NULL --advance 128 --format FLOAT", "out").status, 0);
  ASSERT_THAT(filesBelow("out"), ElementsAre("source_3.wav", "source_7.wav", "timeline.json"));
  for (const std::size_t s : {0U, 1U}) {
    std::vector<float> expected = dry[s];
    for (float& sample : expected) sample *= 0.1F;
    EXPECT_LT(
        differenceInDb(sound(s == 0 ? "out/source_3.wav" : "out/source_7.wav").samples, expected),
        -20.0);
  }
}

TEST_F(Separate, ReportsWhatItWroteAndNothingOnStandardErrorThatIsNoTerminal) {
  const CommandRun loud = separate("DS", "out");
  EXPECT_EQ(loud.errors, "");
  for (const char* part : {"/source_3.wav", "/source_7.wav", "/timeline.json", "real-time factor",
                           "latency 512 samples"}) {
    EXPECT_THAT(loud.output, HasSubstr(part));
  }
  const CommandRun quiet = separate("DS --quiet --force", "out");
  EXPECT_EQ(quiet.status, 0);
  EXPECT_EQ(quiet.output + quiet.errors, "");
}

TEST_F(Separate, LeavesAnEarlierRunAloneUnlessForced) {
  ASSERT_EQ(separate("DS", "out").status, 0);
  const std::string before = content("out/source_3.wav");
  const CommandRun again = separate("NULL", "out");
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.errors, testing::ContainsRegex("out/timeline.json: exists already.*--force"));
  EXPECT_TRUE(content("out/source_3.wav") == before);
  EXPECT_EQ(separate("NULL --force", "out").status, 0);
  EXPECT_FALSE(content("out/source_3.wav") == before);
  EXPECT_THAT(filesBelow("out"), ElementsAre("source_3.wav", "source_7.wav", "timeline.json"));
}

// The network that `separate` builds is one that anybody can run.
class SeparateNetwork : public Separate, public testing::WithParamInterface<const char*> {};

TEST_P(SeparateNetwork, RunFromItsDocumentWritesTheSameFiles) {
  ASSERT_EQ(separate(GetParam(), "direct").status, 0);
  const CommandRun printed = separate(GetParam() + std::string(" --print-network"), "by-document");
  ASSERT_EQ(printed.status, 0) << printed.errors;
  ASSERT_FALSE(std::filesystem::exists(folder / "by-document")) << "it ran";
  folder.write("network.n", printed.output);
  EXPECT_EQ(run("run network.n").status, 0);
  expectSameFiles("by-document", "direct");
}

INSTANTIATE_TEST_SUITE_P(Methods, SeparateNetwork,
                         testing::Values("NULL", "LCMV --window SINE", "GJ --advance 100", "GICA",
                                         "ML --noise-from 0:0.5", "MSNR"));

TEST_F(Separate, ExampleNetworkDoesWhatTheCommandDoes) {
  ASSERT_EQ(separate("ILSE", "direct").status, 0);
  const CommandRun result = run("run " ZELK_EXAMPLES
                                "/separate.n mix.wav scene.json array.sofa "
                                "ILSE by-document");
  ASSERT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output, "<Bool true >\n");
  expectSameFiles("by-document", "direct");
}

}  // namespace
