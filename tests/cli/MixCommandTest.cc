#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>

#include "gmock/gmock.h"
#include "tests/cli/TalkersFixture.h"

namespace {

using Samples = std::vector<float>;

/// Two sources and a noise source.
class MixCommand : public Talkers {
 protected:
  MixCommand() {
    writeSound(folder / "a.wav", RATE, 1, noise(3000, 1));
    writeSound(folder / "b.wav", RATE, 1, noise(4000, 2));
    writeSound(folder / "c.wav", RATE, 1, noise(2000, 3));
    folder.write("scene.json", R"({"sources": [{"id": 4, "azimuth": 0},
        {"id": 2, "azimuth": 90}], "noise": [{"id": 9, "azimuth": -90}]})");
  }

  CommandRun mix(const std::string& more = "",
                 const std::string& sounds = "a.wav b.wav c.wav") const {
    return run("mix scene.json --tf array.sofa -o m.wav --dry " + sounds + " " + more);
  }
};

TEST_F(MixCommand, TheMixtureIsTheSumOfTheImages) {
  const CommandRun run = mix("--gain -20 -20 -20 --noise-level -40 --diffuse-level -30 --seed 5");
  ASSERT_EQ(run.status, 0);
  EXPECT_EQ(run.errors + run.output, "");
  const Sound mixture = sound("m.wav");
  EXPECT_EQ(mixture.channels, MICROPHONES);
  EXPECT_EQ(mixture.samplingRate, RATE);
  EXPECT_EQ(mixture.samples.size(), MICROPHONES * (4000U + 512 - 1));  // the longest source's
  Samples sum(mixture.samples.size());
  std::map<std::string, double> levels;  // in dB
  for (const char* name : {"m-source4.wav", "m-source2.wav", "m-noise9.wav", "m-diffuse-noise.wav",
                           "m-microphone-noise.wav"}) {
    const Samples image = sound(name).samples;
    ASSERT_EQ(image.size(), sum.size()) << name;
    double power = 0;
    for (std::size_t n = 0; n < sum.size(); ++n) {
      sum[n] += image[n];
      power += std::pow(image[n], 2) / static_cast<double>(sum.size());
    }
    levels[name] = 10 * std::log10(power);
    EXPECT_GT(levels[name], -50) << name;
  }
  EXPECT_NEAR(levels["m-diffuse-noise.wav"], -30, 1e-3);
  EXPECT_NEAR(levels["m-microphone-noise.wav"], -40, 0.3);
  EXPECT_EQ(mixture.samples, sum);
  EXPECT_EQ(folder.names().size(), 12U) << "unfinished files are left";
}

TEST_F(MixCommand, GainsApplyInTheOrderOfTheDryFiles) {
  ASSERT_EQ(mix().status, 0);
  Samples quieter = sound("m-source2.wav").samples;
  const Samples first = sound("m-source4.wav").samples;
  ASSERT_EQ(mix("--gain 0 -20 6 --force").status, 0);
  for (float& sample : quieter) sample *= 0.1F;
  EXPECT_LT(differenceInDb(sound("m-source2.wav").samples, quieter), -120);
  EXPECT_EQ(sound("m-source4.wav").samples, first);
}

TEST_F(MixCommand, RawFilesAreSixteenBitLittleEndian) {
  std::string bytes;
  Samples samples;
  for (const int value : {0, 1, 256, -1, -32768, 32767, 1000}) {
    bytes += static_cast<char>(value & 0xFF);
    bytes += static_cast<char>((value >> 8) & 0xFF);
    samples.push_back(static_cast<float>(value) / 32768.0F);
  }
  folder.write("a.raw", bytes);
  writeSound(folder / "same.wav", RATE, 1, samples);
  ASSERT_EQ(mix("--raw-rate 16000", "a.raw a.raw a.raw").status, 0);
  const Sound fromRaw = sound("m.wav");
  ASSERT_EQ(mix("--force", "same.wav same.wav same.wav").status, 0);
  EXPECT_EQ(sound("m.wav").samples, fromRaw.samples);
}

// A tone at half the rate is the same tone at the rate.
TEST_F(MixCommand, ResamplesOnDemandOnly) {
  for (const int rate : {RATE / 2, RATE}) {
    Samples tone;
    for (int n = 0; n < rate / 4; ++n) {
      const double t = static_cast<double>(n) / rate;
      const double fade = std::pow(std::sin(4 * std::numbers::pi * t), 2);
      tone.push_back(static_cast<float>(std::sin(4000 * t) * fade));
    }
    writeSound(folder / (rate == RATE ? "full.wav" : "half.wav"), rate, 1, tone);
  }
  EXPECT_EQ(mix("", "half.wav b.wav c.wav").errors,
            "zelk-sss: half.wav: the sampling rate is 8000 Hz, expected 16000 Hz as in "
            "array.sofa (--resample converts it)\n");
  ASSERT_EQ(mix("--resample", "half.wav b.wav c.wav").status, 0);
  const Sound resampled = sound("m-source4.wav");
  ASSERT_EQ(mix("--force", "full.wav b.wav c.wav").status, 0);
  EXPECT_LT(differenceInDb(resampled.samples, sound("m-source4.wav").samples), -80);
}

TEST_F(MixCommand, NotesPositionsThatWereNotMeasuredAndClipping) {
  folder.write("scene.json", R"({"sources": [{"id": 7, "azimuth": 20}]})");
  EXPECT_EQ(mix("--gain -10", "a.wav").errors,
            "zelk-sss: scene.json: source 7 is up to 20.0 degrees from the nearest position in "
            "array.sofa\n");
  const auto peak = [&] {
    const Samples mixture = sound("m.wav").samples;
    return std::abs(*std::max_element(mixture.begin(), mixture.end(),
                                      [](float a, float b) { return std::abs(a) < std::abs(b); }));
  };
  const CommandRun loud = mix("--force --gain 40", "a.wav");
  EXPECT_EQ(loud.status, 0);
  EXPECT_THAT(loud.errors, testing::HasSubstr("m.wav: the peak is "));
  const std::string excess = loud.errors.substr(loud.errors.find("it fits with ") + 13, 4);
  const std::string gain = " --gain " + std::to_string(40 - std::stod(excess));
  EXPECT_THAT(mix("--force" + gain, "a.wav").errors, testing::Not(testing::HasSubstr("the peak")));
  EXPECT_THAT(peak(), testing::AllOf(testing::Le(1.0F), testing::Gt(0.98F)));
  EXPECT_THAT(mix("--force --gain auto", "a.wav").errors, testing::HasSubstr("--gain auto: "));
  EXPECT_NEAR(peak(), std::pow(10.0, -1.0 / 20.0), 1e-4);
}

TEST_F(MixCommand, RefusalsNameFileFoundAndExpected) {
  folder.write("text.txt", "no audio, scene or response");
  folder.write("odd.raw", "123");
  folder.write("late.json", R"({"sources": [{"id": 3, "azimuth": 0, "active": [[1e8, 2e8]]}]})");
  writeSound(folder / "empty.wav", RATE, 1, {});
  const std::string begin = "mix scene.json --tf array.sofa ";
  const std::string all = begin + "-o m.wav --dry a.wav b.wav c.wav ";
  expectRefused(
      2, {{"mix scene.json --dry a.wav -o m.wav", "--tf is required"},
          {begin + "--dry a.wav -o mix.flac",
           "--output: \"mix.flac\", expected a name that ends in .wav"},
          {begin + "--dry a.wav b.wav -o m.wav",
           "--dry: 2 given, expected 3: one for each of the 2 sources and 1 noise sources in "
           "scene.json"},
          {all + "--gain 1", "--gain: 1 given, expected as many as there are dry files, 3"},
          {all + "--gain auto 1 2",
           "--gain: \"auto\", expected auto, or -200 to 200 dB for each dry file"},
          {all + "--noise-level 3", "--noise-level: \"3\", expected -200 to 0"}});
  expectRefused(1, {{"mix text.txt --tf array.sofa --dry a.wav -o m.wav", "text.txt…"},
                    {"mix late.json --tf array.sofa --dry a.wav -o m.wav",
                     "late.json: source 3 is active from 100000000 s on, expected 86400 s at most"},
                    {"mix scene.json --tf text.txt --dry a.wav b.wav c.wav -o m.wav", "text.txt…"},
                    {begin + "--dry absent b.wav c.wav -o m.wav", "absent: cannot be read…"},
                    {begin + "--dry a.wav b.wav empty.wav -o m.wav", "empty.wav: …"},
                    {begin + "--dry odd.raw b.wav c.wav --raw-rate 16000 -o m.wav",
                     "odd.raw: has 3 bytes, expected two for each sample…"},
                    {begin + "--dry /usr b.wav c.wav --raw-rate 16000 -o m.wav",
                     "/usr: cannot be read: Is a directory"},
                    {all + "--raw-rate 16000", "a.wav: begins as a WAV file does (RIFF)…"}});
}

}  // namespace
