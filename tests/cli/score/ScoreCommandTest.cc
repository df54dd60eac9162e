#include <algorithm>
#include <fstream>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "tests/cli/process/CommandRun.h"
#include "tests/toolbox/AudioTesting.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Samples = std::vector<float>;

constexpr int RATE = 16000;

/// Files in which two sources hold different samples, so that all scores are known.
class ScoreCommand : public testing::Test {
 protected:
  void SetUp() override {
    file("a.wav", {1, 0, 0, 0});
    file("b.wav", {0, 1, 0, 0});
    file("estimate-a.wav", {1, 0.1F, 0, 0});
    file("estimate-b.wav", {0, 1, 0, 0});
    file("mixture.wav", {1, 1, 0, 0});
  }

  std::string file(const std::string& name, const Samples& samples, int channels = 1,
                   int rate = RATE) const {
    writeSound(folder / name, rate, channels, samples);
    return folder / name;
  }

  /// `score` of both estimates with further arguments.
  CommandRun scoreBoth(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = {"score",      "--reference", a,        b,
                                          "--estimate", estimateA,     estimateB};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runCommand(arguments);
  }

  TestFolder folder;
  std::string a = folder / "a.wav";
  std::string b = folder / "b.wav";
  std::string estimateA = folder / "estimate-a.wav";
  std::string estimateB = folder / "estimate-b.wav";
  std::string mixture = folder / "mixture.wav";
};

TEST_F(ScoreCommand, Table) {
  const CommandRun run = scoreBoth({"--mixture", mixture});
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.output,
            "source   SI-SDR   SI-SIR   SI-SAR  SI-SDRi  SI-SIRi  estimate\n"
            "     1    20.00    20.00      inf    20.00    20.00  " +
                estimateA +
                "\n"
                "     2      inf      inf      inf      inf      inf  " +
                estimateB +
                "\n"
                "  mean      inf      inf      inf      inf      inf\n");
  EXPECT_EQ(run.errors, "");
}

TEST_F(ScoreCommand, Json) {
  const CommandRun run = scoreBoth({"--mixture", mixture, "--json"});
  ASSERT_EQ(run.status, 0) << run.errors;
  const auto report = nlohmann::json::parse(run.output);
  EXPECT_EQ(report["samples"], 4);
  EXPECT_EQ(report["samplingRate"], RATE);
  EXPECT_EQ(report["filterTaps"], 1);
  const auto& first = report["sources"][0];
  EXPECT_EQ(first["reference"], a);
  EXPECT_EQ(first["estimate"], estimateA);
  EXPECT_NEAR(first["siSdr"].get<double>(), 20, 1e-6);
  EXPECT_NEAR(first["siSdrImprovement"].get<double>(), 20, 1e-6);
  EXPECT_EQ(first["mixture"]["siSdr"], 0);
  EXPECT_EQ(first["siSar"], "inf");
  EXPECT_EQ(report["mean"]["siSdr"], "inf");

  // An infinite score of a mixture that is infinite too: the improvement is undefined.
  const auto perfect = nlohmann::json::parse(
      runCommand({"score", "--reference", b, "--estimate", estimateB, "--mixture", b, "--json"})
          .output);
  EXPECT_TRUE(perfect["sources"][0]["siSdrImprovement"].is_null());
}

TEST_F(ScoreCommand, ChannelAndLength) {
  // Three channels, of which the second holds the reference; two samples more than the estimate.
  const std::string wide =
      file("wide.wav", {9, 1, 9, 8, 0, 8, 7, 0, 7, 6, 0, 6, 5, 3, 5, 4, 3, 4}, 3);
  const CommandRun run = runCommand(
      {"score", "--reference", wide, "--estimate", estimateA, "--channel", "2", "--json"});
  ASSERT_EQ(run.status, 0) << run.errors;
  const auto report = nlohmann::json::parse(run.output);
  EXPECT_NEAR(report["sources"][0]["siSdr"].get<double>(), 20, 1e-6);
  const std::string note = wide +
                           ": has 6 samples, of which the first 4 are compared, the length of the "
                           "shortest file";
  EXPECT_THAT(report["notes"], ElementsAre(note));
  EXPECT_EQ(run.errors, "zelk-sss: " + note + "\n");
}

TEST_F(ScoreCommand, OutputFileIsNotReplacedWithoutForce) {
  const std::string report = folder.write("report.txt", "old");
  const std::size_t files = folder.names().size();
  const CommandRun refused = scoreBoth({"-o", report});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.errors, "zelk-sss: " + report +
                                ": exists already, expected a new name (--force replaces the "
                                "file)\n");
  const CommandRun forced = scoreBoth({"-o", report, "--force"});
  EXPECT_EQ(forced.status, 0) << forced.errors;
  EXPECT_EQ(forced.output, "");
  std::ifstream written(report);
  const std::string text{std::istreambuf_iterator<char>(written), {}};
  EXPECT_EQ(text, scoreBoth().output);
  EXPECT_EQ(folder.names().size(), files) << "a temporary file was left";
}

TEST_F(ScoreCommand, ErrorsNameFileFoundAndExpected) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const std::string broken = file("nan.wav", {1, 0, nan, 0});
  const std::string silent = file("silent.wav", {0, 0, 0, 0});
  const std::string other = file("other.wav", {1, 0, 0, 0}, 1, 8000);
  const std::string empty = file("empty.wav", {});
  const std::string stereo = file("stereo.wav", {1, 0, 0, 1}, 2);
  const std::string text = folder.write("text.wav", "no audio at all");
  const std::string absent = folder / "absent.wav";
  struct Case {
    std::vector<std::string> arguments;
    int status;
    std::string message;
  };
  const std::vector<Case> cases = {
      {{}, 2, "no command is given, expected one of: "},
      {{"scores"}, 2, "not expected: scores"},
      {{"score", "--estimate", a}, 2, "--reference is required"},
      {{"score", "--reference", a, b, "--estimate", a},
       2,
       "--estimate: 1 given, expected as many as there are references, 2"},
      {{"score", "--reference", a, "--estimate", a, "--filter-taps", "0"}, 2, "--filter-taps"},
      {{"score", "--reference", a, "--estimate", a, "--channel", "zero"}, 2, "--channel"},
      {{"score", "--reference", a, "--estimate", a, "--taps", "3"}, 2, "--taps"},
      {{"score", "--reference", a, "--estimate", absent}, 1, absent + ": cannot be read"},
      {{"score", "--reference", text, "--estimate", a}, 1, text + ": cannot be read"},
      {{"score", "--reference", a, "--estimate", broken},
       1,
       broken + ": sample 2 is nan, expected a finite number"},
      {{"score", "--reference", silent, "--estimate", a}, 1, silent + ": the reference is silent"},
      {{"score", "--reference", a, "--estimate", silent}, 1, silent + ": the signal is silent"},
      {{"score", "--reference", a, "--estimate", empty}, 1, empty + ": holds no samples"},
      {{"score", "--reference", a, "--estimate", other},
       1,
       other + ": the sampling rate is 8000 Hz, expected 16000 Hz as in " + a},
      {{"score", "--reference", a, a, "--estimate", a, b},
       1,
       a + ": the reference is a weighted sum of those before it"},
      {{"score", "--reference", a, "--estimate", stereo, "--channel", "3"}, 1, stereo},
      {{"score", "--reference", a, "--estimate", a, "-o", folder / "none/report.txt"},
       1,
       "there is no folder " + (folder / "none")}};
  for (const Case& c : cases) {
    const CommandRun run = runCommand(c.arguments);
    EXPECT_EQ(run.status, c.status) << c.message;
    EXPECT_THAT(run.errors, testing::StartsWith("zelk-sss: "));
    EXPECT_THAT(run.errors, HasSubstr(c.message));
    EXPECT_EQ(std::count(run.errors.begin(), run.errors.end(), '\n'), 1) << run.errors;
    EXPECT_EQ(run.output, "");
  }
}

}  // namespace
