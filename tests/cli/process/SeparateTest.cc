// `separate` and `run` as a user starts them: from files to files.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>

#include "gmock/gmock.h"
#include "tests/cli/process/CommandRun.h"
#include "tests/cli/process/TalkersFixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string bytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

double product(const std::vector<float>& a, const std::vector<float>& b) {
  return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

/// Power of what an estimate has of the target over what it has of the other source, in dB: both
/// found by projection, which is exact for sources that do not correlate.
double interferenceRatio(const std::vector<float>& estimate, const std::vector<float>& target,
                         const std::vector<float>& other) {
  const double t = product(estimate, target);
  const double o = product(estimate, other);
  return 10 * std::log10(t * t / product(target, target) / (o * o / product(other, other)));
}

class Separate : public Talkers {
 protected:
  CommandRun separate(const std::string& method, const std::string& output,
                      const std::vector<std::string>& more = {}) const {
    std::vector<std::string> words = {"separate", mixture, "--tf", database,   "--sources",
                                      scene,      "-o",    output, "--method", method};
    words.insert(words.end(), more.begin(), more.end());
    return runCommand(words);
  }

  std::vector<float> separated(const std::string& output, int id) const {
    return readSound(output + "/source_" + std::to_string(id) + ".wav").samples;
  }
};

// The database holds the transfer functions of the very responses that made the mixture; nothing
// between the sound files may turn, conjugate, shift or reorder them.
TEST_F(Separate, NullUndoesAMixtureMadeByConvolution) {
  const std::string out = folder / "out";
  const CommandRun run = separate("NULL", out, {"--advance", "128", "--format", "FLOAT"});
  ASSERT_EQ(run.status, 0) << run.errors;
  ASSERT_THAT(namesIn(out), ElementsAre("source_3.wav", "source_7.wav", "timeline.json"));
  std::vector<std::vector<float>> expected = dry;
  for (auto& signal : expected) {
    for (float& sample : signal) sample *= 0.1F;
  }
  EXPECT_LT(differenceInDb(separated(out, 3), expected[0]), -20.0);
  EXPECT_LT(differenceInDb(separated(out, 7), expected[1]), -20.0);
  EXPECT_GT(interferenceRatio(separated(out, 3), dry[0], dry[1]), 25.0);
  EXPECT_GT(interferenceRatio(separated(out, 7), dry[1], dry[0]), 25.0);
}

TEST_F(Separate, ReportsWhatItWroteAndNothingOnStandardErrorThatIsNoTerminal) {
  const std::string out = folder / "out";
  const CommandRun run = separate("DS", out);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors, "");
  for (const char* part : {"/source_3.wav", "/source_7.wav", "/timeline.json", "real-time factor",
                           "latency 512 samples"}) {
    EXPECT_THAT(run.output, HasSubstr(part));
  }
  const CommandRun quiet = separate("DS", out, {"--quiet", "--force"});
  EXPECT_EQ(quiet.status, 0);
  EXPECT_EQ(quiet.output + quiet.errors, "");
}

TEST_F(Separate, LeavesAnEarlierRunAloneUnlessForced) {
  const std::string out = folder / "out";
  ASSERT_EQ(separate("DS", out).status, 0);
  const std::string before = bytesOf(out + "/source_3.wav");
  const CommandRun again = separate("NULL", out);
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.errors, HasSubstr(out + "/timeline.json: exists already"));
  EXPECT_THAT(again.errors, HasSubstr("--force"));
  EXPECT_TRUE(bytesOf(out + "/source_3.wav") == before);
  EXPECT_EQ(separate("NULL", out, {"--force"}).status, 0);
  EXPECT_FALSE(bytesOf(out + "/source_3.wav") == before);
  EXPECT_THAT(namesIn(out), ElementsAre("source_3.wav", "source_7.wav", "timeline.json"));
}

// ---- the network that `separate` builds is one that anybody can run

struct MethodCase {
  const char* method;
  std::vector<std::string> more;
};

class SeparateNetwork : public Separate, public testing::WithParamInterface<MethodCase> {};

TEST_P(SeparateNetwork, RunFromItsDocumentWritesTheSameFiles) {
  const auto& [method, more] = GetParam();
  const std::string direct = folder / "direct";
  const std::string byDocument = folder / "by document";
  const CommandRun first = separate(method, direct, more);
  ASSERT_EQ(first.status, 0) << first.errors;

  std::vector<std::string> printing = more;
  printing.emplace_back("--print-network");
  const CommandRun printed = separate(method, byDocument, printing);
  ASSERT_EQ(printed.status, 0) << printed.errors;
  ASSERT_FALSE(std::filesystem::exists(byDocument)) << "--print-network ran the network";
  const CommandRun second = runCommand({"run", folder.write("network.n", printed.output)});
  ASSERT_EQ(second.status, 0) << second.errors;

  ASSERT_THAT(namesIn(direct), testing::SizeIs(3));
  ASSERT_EQ(namesIn(byDocument), namesIn(direct));
  for (const std::string& name : namesIn(direct)) {
    EXPECT_TRUE(bytesOf(byDocument + "/" + name) == bytesOf(direct + "/" + name)) << name;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Methods, SeparateNetwork,
    testing::Values(MethodCase{"NULL", {}}, MethodCase{"LCMV", {"--window", "SINE"}},
                    MethodCase{"GJ", {"--advance", "100"}}, MethodCase{"GICA", {}},
                    MethodCase{"ML", {"--noise-from", "0:0.5"}}, MethodCase{"MSNR", {}}),
    [](const auto& testCase) { return testCase.param.method; });

TEST_F(Separate, ExampleNetworkDoesWhatTheCommandDoes) {
  const std::string direct = folder / "direct";
  const std::string byDocument = folder / "by document";
  ASSERT_EQ(separate("ILSE", direct).status, 0);
  const CommandRun run = runCommand({"run", std::string(ZELK_EXAMPLES) + "/separate.n", mixture,
                                     scene, database, "ILSE", byDocument});
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.output, "<Bool true >\n");
  for (const std::string& name : namesIn(direct)) {
    EXPECT_TRUE(bytesOf(byDocument + "/" + name) == bytesOf(direct + "/" + name)) << name;
  }
}

}  // namespace
