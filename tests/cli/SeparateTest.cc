// `separate` and `run` as a user starts them: from files to files.

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "gmock/gmock.h"
#include "tests/cli/TalkersFixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Separate : public Talkers {
 protected:
  CommandRun separate(const std::string& method, const std::string& output) const {
    return run("separate mix.wav -o " + output + files + "--method " + method);
  }

  void expectSameFiles(const std::string& actual, const std::string& expected) const {
    ASSERT_THAT(folder.names(expected), testing::SizeIs(3));
    for (const std::string& name : folder.names(expected)) {
      EXPECT_TRUE(content(actual + "/" + name) == content(expected + "/" + name)) << name;
    }
    EXPECT_EQ(folder.names(actual), folder.names(expected));
  }

  /// How much stronger than everything else the target is from 2 s to 4 s, in dB.
  double purity(const std::string& name, const std::string& target) const {
    const CommandRun scored =
        run("score --json --range 2:4 --reference " + target + " --estimate " + name);
    return nlohmann::json::parse(scored.output)["sources"][0]["siSdr"];
  }
};

// The database holds the transfer functions of the very responses that made the mixture; nothing
// between the sound files may turn, conjugate, shift or reorder them.
TEST_F(Separate, NullUndoesAMixtureMadeByConvolution) {
  const CommandRun loud = separate("NULL --advance 128 --format FLOAT", "out");
  ASSERT_EQ(loud.status, 0);
  EXPECT_EQ(loud.errors, "") << "it is no terminal";
  for (const char* part : {"/source_3.wav", "/source_7.wav", "/timeline.json", "real-time factor",
                           "latency 512 samples (32.0 ms)"}) {
    EXPECT_THAT(loud.output, HasSubstr(part));
  }
  ASSERT_THAT(folder.names("out"), ElementsAre("source_3.wav", "source_7.wav", "timeline.json"));
  for (const std::size_t s : {0U, 1U}) {
    std::vector<float> expected = dry[s];
    for (float& sample : expected) sample *= 0.1F;
    EXPECT_LT(
        differenceInDb(sound(s == 0 ? "out/source_3.wav" : "out/source_7.wav").samples, expected),
        -20.0);
  }
  const CommandRun quiet = separate("DS --quiet --force", "out");
  EXPECT_EQ(quiet.status, 0);
  EXPECT_EQ(quiet.output + quiet.errors, "");
}

// The network that `separate` builds is one that anybody can run.
TEST_F(Separate, RunFromItsDocumentWritesTheSameFiles) {
  for (const std::string method : {"NULL", "LCMV --window SINE", "GJ --advance 100", "GICA",
                                   "ML --noise-from 0:0.5", "MSNR"}) {
    SCOPED_TRACE(method);
    ASSERT_EQ(separate(method + " --force", "direct").status, 0);
    const CommandRun printed = separate(method + " --print-network", "by-document");
    ASSERT_EQ(printed.status, 0) << printed.errors;
    ASSERT_FALSE(std::filesystem::exists(folder / "by-document")) << "it ran";
    folder.write("network.n", printed.output);
    EXPECT_EQ(run("run network.n").status, 0);
    expectSameFiles("by-document", "direct");
    std::filesystem::remove_all(folder / "by-document");
  }
}

TEST_F(Separate, ExampleNetworkDoesWhatTheCommandDoes) {
  ASSERT_EQ(separate("ILSE", "direct").status, 0);
  const CommandRun result =
      run("run " ZELK_EXAMPLES "/separate.n mix.wav scene.json array.sofa ILSE by-document");
  ASSERT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output, "<Bool true >\n");
  expectSameFiles("by-document", "direct");
}

// The methods that learn what the noise is take it out. The target is silent for two seconds.
TEST_F(Separate, TakesTheLearntNoiseOut) {
  std::vector<float> target = noise(4 * RATE, 70);
  std::fill(target.begin(), target.begin() + 2 * RATE, 0.0F);
  writeSound(folder / "a.wav", RATE, 1, target);
  writeSound(folder / "b.wav", RATE, 1, noise(4 * RATE, 80));
  const CommandRun mixing = run("mix scene.json --tf array.sofa -o m.wav --dry a.wav b.wav");
  ASSERT_EQ(mixing.status, 0) << mixing.errors;
  folder.write("late.json", R"({"sources": [{"id": 3, "azimuth": 45, "active": [[2, 9]]}]})");
  const struct {
    const char* options;
    const char* reference;
    double least;
  } cases[] = {{"--method ML --noise-from 0:1.9", "a.wav", 15},
               {"--method ML", "a.wav", 15},  // noise is what there is while nobody is active
               // Has an arbitrary scale per bin, which is no sound before it is projected back.
               {"--method MSNR", "m-source3.wav", purity("m.wav", "m-source3.wav") + 8}};
  for (const auto& [options, reference, least] : cases) {
    SCOPED_TRACE(options);
    const CommandRun separation = run(
        "separate m.wav --tf array.sofa --sources late.json --format FLOAT --advance 128 --force "
        "-o out " +
        std::string(options));
    ASSERT_EQ(separation.status, 0) << separation.errors;
    EXPECT_GE(purity("out/source_3.wav", reference), least);
  }
}

}  // namespace
