#include <algorithm>
#include <cmath>
#include <numbers>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "tests/cli/mix/FirFile.h"
#include "tests/cli/process/CommandRun.h"
#include "tests/toolbox/AudioTesting.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using Samples = std::vector<float>;
using Words = std::vector<std::string>;

constexpr int RATE = 16000;

/// Two sources, a noise source, and responses that are pulses of different delays.
class MixCommand : public testing::Test {
 protected:
  void SetUp() override {
    FirResponses data;
    data.sources = {{1, 0, 0}, {0, 1, 0}, {0, -1, 0}};
    data.receivers = 2;
    data.samples = 4;
    for (const float value : noise(3 * 2 * 4, 9)) data.values.push_back(static_cast<double>(value));
    data.delays = {0, 3, 5, 1, 2, 7};
    writeFirFile(responses, data);
    writeSound(dryA, RATE, 1, noise(3000, 1));
    writeSound(dryB, RATE, 1, noise(4000, 2));
    writeSound(dryC, RATE, 1, noise(2000, 3));
    scene = folder.write("scene.json", R"({"sources": [{"id": 4, "azimuth": 0},
        {"id": 2, "azimuth": 90}], "noise": [{"id": 9, "azimuth": -90}]})");
  }

  CommandRun mix(const Words& more = {}, Words dry = {}) const {
    if (dry.empty()) dry = {dryA, dryB, dryC};
    Words words = {"mix", scene, "--tf", responses, "-o", output, "--dry"};
    words.insert(words.end(), dry.begin(), dry.end());
    words.insert(words.end(), more.begin(), more.end());
    return runCommand(words);
  }

  Sound read(const std::string& name) const { return readSound(folder / name); }

  TestFolder folder;
  std::string responses = folder / "responses.sofa";
  std::string dryA = folder / "a.wav";
  std::string dryB = folder / "b.wav";
  std::string dryC = folder / "c.wav";
  std::string output = folder / "mix.wav";
  std::string scene;
};

TEST_F(MixCommand, TheMixtureIsTheSumOfTheImages) {
  const CommandRun run = mix({"--noise-level", "-40", "--seed", "5"});
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.errors + run.output, "");
  const Sound mixture = read("mix.wav");
  EXPECT_EQ(mixture.channels, 2);
  EXPECT_EQ(mixture.samplingRate, RATE);
  // The longest: 4000 samples, delays of up to 5 of that source, 4 samples of response.
  EXPECT_EQ(mixture.samples.size(), 2U * (4000 + 4 - 1 + 5));
  Samples sum(mixture.samples.size());
  for (const char* name :
       {"mix-source4.wav", "mix-source2.wav", "mix-noise9.wav", "mix-microphone-noise.wav"}) {
    const Sound image = read(name);
    ASSERT_EQ(image.samples.size(), sum.size()) << name;
    double energy = 0;
    for (std::size_t n = 0; n < sum.size(); ++n) {
      sum[n] += image.samples[n];
      energy += std::pow(static_cast<double>(image.samples[n]), 2);
    }
    EXPECT_GT(energy, 0) << name;
    if (std::string(name) == "mix-microphone-noise.wav") {
      EXPECT_NEAR(10 * std::log10(energy / static_cast<double>(sum.size())), -40, 0.3);
    }
  }
  EXPECT_EQ(mixture.samples, sum);
  EXPECT_THAT(folder.names(), Not(Contains(HasSubstr(".part"))));
}

TEST_F(MixCommand, GainsApplyInTheOrderOfTheDryFiles) {
  ASSERT_EQ(mix().status, 0);
  const Sound plain = read("mix-source2.wav");
  const Sound first = read("mix-source4.wav");
  ASSERT_EQ(mix({"--gain", "0", "-20", "6", "--force"}).status, 0);
  Samples quieter = plain.samples;
  for (float& sample : quieter) sample *= 0.1F;
  EXPECT_LT(differenceInDb(read("mix-source2.wav").samples, quieter), -120);
  EXPECT_EQ(read("mix-source4.wav").samples, first.samples);
}

TEST_F(MixCommand, RawFilesAreSixteenBitLittleEndian) {
  const std::vector<int> values = {0, 1, 256, -1, -32768, 32767, 1000};
  std::string bytes;
  Samples samples;
  for (const int value : values) {
    bytes += static_cast<char>(value & 0xFF);
    bytes += static_cast<char>((value >> 8) & 0xFF);
    samples.push_back(static_cast<float>(value) / 32768.0F);
  }
  const std::string raw = folder.write("a.raw", bytes);
  ASSERT_EQ(mix({"--raw-rate", "16000"}, {raw, raw, raw}).status, 0);
  const Sound fromRaw = read("mix.wav");
  const std::string wav = folder / "same.wav";
  writeSound(wav, RATE, 1, samples);
  ASSERT_EQ(mix({"--force"}, {wav, wav, wav}).status, 0);
  EXPECT_EQ(read("mix.wav").samples, fromRaw.samples);
}

TEST_F(MixCommand, ResamplesOnDemandOnly) {
  // A tone at half the rate is the same tone at the rate.
  const auto tone = [](int rate) {
    Samples result(static_cast<std::size_t>(rate) / 4);
    for (std::size_t n = 0; n < result.size(); ++n) {
      const double t = static_cast<double>(n) / rate;
      result[n] =
          static_cast<float>(std::sin(4000 * t) * std::pow(std::sin(4 * std::numbers::pi * t), 2));
    }
    return result;
  };
  const std::string slow = folder / "slow.wav";
  writeSound(slow, RATE / 2, 1, tone(RATE / 2));
  const CommandRun refused = mix({}, {slow, dryB, dryC});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.errors, "zelk-sss: " + slow +
                                ": the sampling rate is 8000 Hz, expected 16000 Hz as in " +
                                responses + " (--resample converts it)\n");
  ASSERT_EQ(mix({"--resample"}, {slow, dryB, dryC}).status, 0);
  const Sound resampled = read("mix-source4.wav");
  writeSound(slow, RATE, 1, tone(RATE));
  ASSERT_EQ(mix({"--force"}, {slow, dryB, dryC}).status, 0);
  EXPECT_LT(differenceInDb(resampled.samples, read("mix-source4.wav").samples), -80);
}

TEST_F(MixCommand, NotesPositionsThatWereNotMeasured) {
  scene = folder.write("scene.json", R"({"sources": [{"id": 7, "azimuth": 20}]})");
  const CommandRun run = mix({}, {dryA});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors, "zelk-sss: " + scene +
                            ": source 7 is up to 20.0 degrees from the nearest position in " +
                            responses + "\n");
}

TEST_F(MixCommand, AnExistingImageStopsEverything) {
  const std::string image = folder.write("mix-noise9.wav", "old");
  const Words before = folder.names();
  const CommandRun run = mix();
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "zelk-sss: " + image +
                            ": exists already, expected a new name (--force replaces the file)\n");
  EXPECT_EQ(folder.names(), before);
  // A failure on the way leaves the old files as they were, and no parts.
  const std::string empty = folder / "empty.wav";
  writeSound(empty, RATE, 1, {});
  EXPECT_EQ(mix({"--force"}, {dryA, dryB, empty}).status, 1);
  Words after = folder.names();
  after.erase(std::remove(after.begin(), after.end(), "empty.wav"), after.end());
  EXPECT_EQ(after, before);
}

TEST_F(MixCommand, ErrorsNameFileFoundAndExpected) {
  const std::string text = folder.write("text.txt", "no audio, scene or response");
  const std::string odd = folder.write("odd.raw", "123");
  const std::string late = folder.write(
      "late.json", R"({"sources": [{"id": 3, "azimuth": 0, "active": [[1e9, 2e9]]}]})");
  const std::string absent = folder / "absent";
  struct Case {
    Words arguments;
    int status;
    std::string message;
  };
  const std::vector<Case> cases = {
      {{"mix", scene, "--dry", dryA, "-o", output}, 2, "--tf is required"},
      {{"mix", scene, "--tf", responses, "--dry", dryA, "-o", folder / "mix.flac"},
       2,
       "--output: \"" + (folder / "mix.flac") + "\", expected a name that ends in .wav"},
      {{"mix", scene, "--tf", responses, "--dry", dryA, dryB, "-o", output},
       2,
       "--dry: 2 given, expected 3: one for each of the 2 sources and 1 noise sources in " + scene},
      {{"mix", scene, "--tf", responses, "--dry", dryA, dryB, dryC, "--gain", "1", "-o", output},
       2,
       "--gain: 1 given, expected as many as there are dry files, 3"},
      {{"mix", scene, "--tf", responses, "--dry", dryA, "--noise-level", "3", "-o", output},
       2,
       "--noise-level"},
      {{"mix", absent, "--tf", responses, "--dry", dryA, "-o", output}, 1, absent},
      {{"mix", text, "--tf", responses, "--dry", dryA, "-o", output}, 1, text},
      {{"mix", late, "--tf", responses, "--dry", dryA, "-o", output},
       1,
       late + ": source 3 is active from 1000000000 s on, expected 86400 s at most"},
      {{"mix", scene, "--tf", text, "--dry", dryA, dryB, dryC, "-o", output}, 1, text},
      {{"mix", scene, "--tf", responses, "--dry", absent, dryB, dryC, "-o", output},
       1,
       absent + ": cannot be read"},
      {{"mix", scene, "--tf", responses, "--dry", odd, odd, odd, "--raw-rate", "16000", "-o",
        output},
       1,
       odd + ": has 3 bytes, expected two for each sample"},
      {{"mix", scene, "--tf", responses, "--dry", "/usr", dryB, dryC, "--raw-rate", "16000", "-o",
        output},
       1,
       "/usr: cannot be read: Is a directory"},
      {{"mix", scene, "--tf", responses, "--dry", dryA, dryB, dryC, "--raw-rate", "16000", "-o",
        output},
       1,
       dryA + ": begins as a WAV file does (RIFF)"}};
  const Words before = folder.names();
  for (const Case& c : cases) {
    const CommandRun run = runCommand(c.arguments);
    EXPECT_EQ(run.status, c.status) << c.message;
    EXPECT_THAT(run.errors, testing::StartsWith("zelk-sss: "));
    EXPECT_THAT(run.errors, HasSubstr(c.message));
    EXPECT_EQ(std::count(run.errors.begin(), run.errors.end(), '\n'), 1) << run.errors;
  }
  EXPECT_EQ(folder.names(), before);
}

}  // namespace
