// `separate` and `run` as a user starts them: from files to files.

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>

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

  /// But for the record of the run, which the command alone writes and which tells how long it
  /// took.
  void expectSameFiles(const std::string& actual, const std::string& expected) const {
    const std::vector<std::string> names = {"source_3.wav", "source_7.wav", "timeline.json"};
    for (const std::string& name : names) {
      EXPECT_TRUE(content(actual + "/" + name) == content(expected + "/" + name)) << name;
    }
    EXPECT_THAT(folder.names(actual), testing::IsSupersetOf(names));
  }

  /// How much stronger than everything else the target is from 2 s to 4 s, in dB.
  double purity(const std::string& name, const std::string& target) const {
    const CommandRun scored =
        run("score --json --range 2:4 --reference " + target + " --estimate " + name);
    return nlohmann::json::parse(scored.output)["sources"][0]["si_sdr"];
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
  ASSERT_THAT(folder.names("out"),
              ElementsAre("run.json", "source_3.wav", "source_7.wav", "timeline.json"));
  for (const std::size_t s : {0U, 1U}) {
    std::vector<float> expected = dry[s];
    for (float& sample : expected) sample *= 0.1F;
    EXPECT_LT(
        differenceInDb(sound(s == 0 ? "out/source_3.wav" : "out/source_7.wav").samples, expected),
        -20.0);
  }
  // A quarter of the latency, the frame as long as before.
  const CommandRun soon = separate("NULL --latency 8 --format FLOAT", "soon");
  ASSERT_EQ(soon.status, 0) << soon.errors;
  EXPECT_THAT(soon.output, HasSubstr("latency 128 samples (8.0 ms)"));
  EXPECT_LT(differenceInDb(sound("soon/source_3.wav").samples, sound("out/source_3.wav").samples),
            -15.0);
  const nlohmann::json record = nlohmann::json::parse(content("soon/run.json"));
  EXPECT_EQ(record["length"], 512);
  EXPECT_EQ(record["latency"], 128);
  EXPECT_EQ(record["advance"], 64);
  const CommandRun quiet = separate("DS --quiet --force", "out");
  EXPECT_EQ(quiet.status, 0);
  EXPECT_EQ(quiet.output + quiet.errors, "");
}

/// What an installed FlowDesigner would stumble over: it takes the first child for the root element
/// and joins the lines without a blank.
std::string documentFault(const std::string& xml) {
  if (!std::regex_search(xml, std::regex("^(<\\?xml[^>]*>)?\\s*<Document>"))) return "begin";
  if (std::regex_search(xml, std::regex("\n\\s*\\w+\\s*="))) return "attribute at a line's begin";
  return "";
}

// `separate` has no network: the one that it prints, which works frame by frame through the nodes,
// is another way to the same samples. GJ alone ends elsewhere: its adaptive part begins anew
// whenever the engine is told of sources, which the nodes do in every frame and the separator when
// they change.
TEST_F(Separate, PrintedNetworkWritesTheSameSamples) {
  folder.write("busy.json", R"({
      "sources": [{"id": 3, "position": [1, 2, 0], "active": [[0.1, 0.6], [0.8, 0.95], [1, 1.2]]},
                  {"id": 7, "track": [{"t": 0.3, "azimuth": 60}, {"t": 1, "azimuth": -70}],
                   "active": [[0.3, 0.5], [0.55, 0.95], [1, 1.4]]}],
      "noise": [{"id": 9, "position": [3, 0, 0.5], "active": [[0.4, 0.9]]}]})");
  for (const std::string method :
       {"DS --resample",
        "WDS --half-frame-shift on",
        "NULL --inactive-as-noise on",
        "ILSE",
        "LCMV --window SINE --param LCMV_LC_METHOD=FIX",
        "GICA --advance 100",
        "GICA --param GICA_SS_METHOD=LC_MYU --channels 2,3,1",
        "GICA --param GICA_SS_METHOD=FIX --param GICA_SS_MYU=0.03 --project on",
        "GJ",
        "ML",
        "ML --noise-from 0:0.05,1.41:1.5 --noise-loading 0.3 --param REG_FACTOR=0.1",
        "ML --noise-recording mix.wav --noise-channels 2,1,3 --noise-normalize false --project on",
        "ML --noise-forgetting 0.7",
        "MSNR --reference-mic 2 --project-forgetting 0.9",
        "MSNR --length 256 --param DECOMPOSITION_ALGORITHM=GSVD --project off",
        "MSNR --level off",
        "MSNR --refine-live --post-mask 0.2",
        "NULL --refine-live --refine-memory 0.3",
        "ML --refine-live",
        "MVDR --responses array.sofa --param LOADING=0.01 --param FRAMES=3 --advance 100"}) {
    SCOPED_TRACE(method);
    const std::string separation =
        "separate mix.wav --sources busy.json --format FLOAT --force " +
        std::string(method.starts_with("MVDR") ? "" : "--tf array.sofa") + " --method " + method;
    ASSERT_EQ(run(separation + " -o direct").status, 0);
    const CommandRun printed = run(separation + " -o printed --print-network");
    ASSERT_EQ(printed.status, 0) << printed.errors;
    ASSERT_FALSE(std::filesystem::exists(folder / "printed")) << "it ran";
    EXPECT_EQ(documentFault(printed.output), "");
    folder.write("network.n", printed.output);
    EXPECT_EQ(run("run network.n").output, "<Bool true >\n");
    for (const char* name : {"/source_3.wav", "/source_7.wav"}) {
      const std::vector<float> direct = sound("direct" + std::string(name)).samples;
      const std::vector<float> byNetwork = sound("printed" + std::string(name)).samples;
      EXPECT_EQ(direct == byNetwork, method != "GJ") << name;
    }
    std::filesystem::remove_all(folder / "printed");
  }
}

TEST_F(Separate, ExampleNetworkDoesWhatTheCommandDoes) {
  std::filesystem::copy(ZELK_EXAMPLES, folder / "examples");
  for (const std::string& name : folder.names("examples")) {
    if (!name.ends_with(".n")) continue;
    EXPECT_EQ(documentFault(content("examples/" + name)), "") << name;
  }
  EXPECT_EQ(documentFault("<?xml version='1.0'?>\n<!-- c --><Document>"), "begin");
  EXPECT_NE(documentFault("<Document>\n<Node name='a'\n  x='1'/></Document>"), "");
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
