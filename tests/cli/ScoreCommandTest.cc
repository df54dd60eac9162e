#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>

#include "gmock/gmock.h"
#include "tests/cli/CommandTest.h"

namespace {

using Samples = std::vector<float>;

constexpr int RATE = 16000;

/// Files in which two sources hold different samples, so that all scores are known.
class ScoreCommand : public CommandTest {
 protected:
  ScoreCommand() {
    file("a.wav", {1, 0, 0, 0});
    file("b.wav", {0, 1, 0, 0});
    file("ea.wav", {1, 0.1F, 0, 0});
    file("eb.wav", {0, 1, 0, 0});
    file("mix.wav", {1, 1, 0, 0});
  }

  void file(const std::string& name, const Samples& samples, int channels = 1, int rate = RATE) {
    writeSound(folder / name, rate, channels, samples);
  }

  const std::string both =
      "score --reference a.wav b.wav --estimate ea.wav eb.wav --filter-taps 1 ";
};

TEST_F(ScoreCommand, Table) {
  const CommandRun result = run(both + "--mixture mix.wav");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output,
            "source   SI-SDR   SI-SIR   SI-SAR  SI-SDRi  SI-SIRi  estimate\n"
            "     1    20.00    20.00      inf    20.00    20.00  ea.wav\n"
            "     2      inf      inf      inf      inf      inf  eb.wav\n"
            "  mean      inf      inf      inf      inf      inf\n");
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(run(both + "--mixture mix.wav -o report.txt").output, "");
  EXPECT_EQ(content("report.txt"), result.output);
  // What was separated, given for both, fits neither source better.
  EXPECT_EQ(run("score --reference a.wav b.wav --estimate mix.wav mix.wav --filter-taps 1").errors,
            "");
  EXPECT_EQ(
      run("score --reference a.wav b.wav --estimate eb.wav ea.wav --filter-taps 1").errors,
      "zelk-sss: eb.wav fits b.wav better than a.wav, ea.wav fits a.wav better than b.wav: is "
      "the order of the estimates that of the references?\n");
}

// Of three channels the second holds the reference; two samples more than the estimate.
TEST_F(ScoreCommand, JsonOfTheChannelAndLengthThatFilesShare) {
  file("wide.wav", {9, 1, 9, 8, 0, 8, 7, 0, 7, 6, 0, 6, 5, 3, 5, 4, 3, 4}, 3);
  const CommandRun result =
      run("score --reference wide.wav b.wav --estimate ea.wav b.wav --mixture b.wav --channel 2 "
          "--filter-taps 1 --json");
  const auto report = nlohmann::json::parse(result.output);
  EXPECT_EQ(report["samples"], 4);
  EXPECT_EQ(report["sampling_rate"], RATE);
  const auto& first = report["sources"][0];
  EXPECT_EQ(first["reference"], "wide.wav");
  EXPECT_EQ(first["estimate"], "ea.wav");
  EXPECT_NEAR(first["si_sdr"].get<double>(), 20, 1e-6);
  EXPECT_EQ(first["si_sar"], "inf");
  EXPECT_EQ(first["mixture"]["si_sdr"], "-inf");
  EXPECT_EQ(report["mean"]["si_sdr"], "inf");
  // An infinite score of a mixture that is infinite too: the improvement is undefined.
  EXPECT_TRUE(report["sources"][1]["si_sdr_improvement"].is_null());
  const std::string note =
      "wide.wav: has 6 samples, of which the first 4 are compared, the length of the shortest file";
  EXPECT_THAT(report["notes"], testing::ElementsAre(note));
  EXPECT_EQ(result.errors, "zelk-sss: " + note + "\n");
}

TEST_F(ScoreCommand, ComparesTheRangeAskedFor) {
  Samples samples = noise(3 * RATE, 1);
  file("r.wav", samples);
  std::fill(samples.begin(), samples.begin() + RATE, 0.25F);
  std::fill(samples.begin() + 2 * RATE, samples.end(), 0.25F);
  file("e.wav", samples);
  const auto sdr = [&](const std::string& range) {
    const CommandRun scored =
        run("score --reference r.wav --estimate e.wav --json --range " + range);
    return nlohmann::json::parse(scored.output)["sources"][0]["si_sdr"];
  };
  EXPECT_EQ(sdr("1:2"), "inf");
  EXPECT_LT(sdr("0.9:2").get<double>(), 40);
  EXPECT_LT(sdr("1:2.1").get<double>(), 40);
}

TEST_F(ScoreCommand, RefusalsNameFileFoundAndExpected) {
  file("nan.wav", {1, 0, std::numeric_limits<float>::quiet_NaN(), 0});
  file("silent.wav", {0, 0, 0, 0});
  file("other.wav", {1, 0, 0, 0}, 1, 8000);
  file("empty.wav", {});
  file("stereo.wav", {1, 0, 0, 1}, 2);
  folder.write("text.wav", "no audio at all");
  const std::string one = "score --reference a.wav --estimate ";
  expectRefused(2, {{"score --estimate a.wav", "--reference is required"},
                    {"score --reference a.wav b.wav --estimate a.wav",
                     "--estimate: 1 given, expected as many as there are references, 2"},
                    {one + "a.wav --filter-taps 0", "--filter-taps: \"0\", expected 1 to …"},
                    {one + "a.wav --channel zero", "--channel: \"zero\", expected 1 to …"},
                    {one + "a.wav --range 0:1,1:2",
                     "--range: \"0:1,1:2\", expected seconds BEGIN:END with 0 <= BEGIN < END, such "
                     "as 1.5:7"}});
  expectRefused(
      1,
      {{one + "absent.wav", "absent.wav: cannot be read…"},
       {"score --reference text.wav --estimate a.wav", "text.wav: cannot be read…"},
       {one + "nan.wav", "nan.wav: sample 2 is nan, expected a finite number"},
       {"score --reference silent.wav --estimate a.wav",
        "silent.wav: the reference is silent over the compared length of 4 samples…"},
       {one + "silent.wav", "silent.wav: the signal is silent…"},
       {one + "empty.wav", "empty.wav: holds no samples…"},
       {one + "other.wav",
        "other.wav: the sampling rate is 8000 Hz, expected 16000 Hz as in a.wav"},
       {"score --reference a.wav b.wav --estimate a.wav b.wav",
        "a.wav: 4 samples are too few to tell 2 references apart with filters of 512…"},
       {"score --reference a.wav a.wav --estimate a.wav b.wav --filter-taps 1",
        "a.wav: the reference is a weighted sum of those before it…"},
       {one + "stereo.wav --channel 3", "stereo.wav…"},
       {one + "a.wav --range 0:1", "--range is 0:1, expected a part of the signals' 0.00025 s"}});
}

}  // namespace
