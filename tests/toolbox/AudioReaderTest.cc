// Audio files in: formats, channels, sampling rates, broken files, samples that are not finite.

#include "toolbox/core/AudioReader.h"

#include <sndfile.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

#include "AudioTesting.h"
#include "gtest/gtest.h"
#include "toolbox/core/AudioError.h"
#include "toolbox/core/Channels.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

/// All samples, read in blocks of an odd size.
std::vector<float> readAll(Audio::AudioReader& reader) {
  const std::size_t block = 1001;
  const auto channels = static_cast<std::size_t>(reader.channelCount());
  std::vector<float> all;
  std::vector<float> samples(block * channels);
  std::size_t got = block;
  while (got == block) {
    got = reader.read(samples.data(), block);
    all.insert(all.end(), samples.begin(),
               samples.begin() + static_cast<std::ptrdiff_t>(got * channels));
  }
  return all;
}

struct Reading {
  std::vector<float> samples;
  std::vector<std::string> warnings;
};

Reading readFile(const std::string& path, Audio::AudioReaderOptions options = {}) {
  Reading reading;
  options.warn = [&](const std::string& text) { reading.warnings.push_back(text); };
  Audio::AudioReader reader(path, options);
  reading.samples = readAll(reader);
  return reading;
}

std::string refusal(const std::string& path, const Audio::AudioReaderOptions& options = {}) {
  return messageOf<Audio::AudioError>([&] { Audio::AudioReader reader(path, options); });
}

class ChannelTextTest : public testing::TestWithParam<std::pair<std::string, std::vector<int>>> {};

TEST_P(ChannelTextTest, SelectsChannels) {
  EXPECT_EQ(Audio::selectedChannels(GetParam().first, 8), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(Texts, ChannelTextTest,
                         testing::Values(std::pair{"", std::vector{0, 1, 2, 3, 4, 5, 6, 7}},
                                         std::pair{"1-4,7", std::vector{0, 1, 2, 3, 6}},
                                         std::pair{" 8 , 2-2 ,1", std::vector{7, 1, 0}}));

class BadChannelTextTest : public testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(BadChannelTextTest, IsRefused) {
  EXPECT_THAT(messageOf<Audio::AudioError>([] { Audio::selectedChannels(GetParam().first, 8); }),
              HasSubstr(GetParam().second));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, BadChannelTextTest,
    testing::Values(
        std::pair{"1,x", "CHANNELS is \"1,x\": found \"x\", expected channel numbers from 1"},
        std::pair{"1,,2", "found \"\""}, std::pair{"1-", "found \"1-\""},
        std::pair{"-3", "found \"-3\""}, std::pair{"99999999999", "found \"99999999999\""},
        std::pair{"0", "\"0\" does not fit a file whose channels are 1 to 8"},
        std::pair{"7-9", "\"7-9\" does not fit"}, std::pair{"4-2", "\"4-2\" does not fit"},
        std::pair{"1-3,2", "channel 2 is named twice"}));

TEST(AudioReaderTest, ReadsFormatsAndSelectedChannels) {
  const TestFolder folder;
  const std::vector<float> sound = noise(3 * 9001, 5);
  const std::pair<int, float> formats[] = {{SF_FORMAT_WAV | SF_FORMAT_FLOAT, 0.0F},
                                           {SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1.0F / 32768},
                                           {SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 1.0F / 8388608},
                                           {SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 1.0F / 32768}};
  for (const auto& [format, step] : formats) {
    writeSound(folder / "sound", 44100, 3, sound, format);
    Audio::AudioReaderOptions options;
    options.channels = "3,1";
    Audio::AudioReader reader(folder / "sound", options);
    EXPECT_EQ(reader.samplingRate(), 44100);
    EXPECT_EQ(reader.channelCount(), 2);
    EXPECT_EQ(reader.announcedSamples(), 9001);
    const std::vector<float> samples = readAll(reader);
    ASSERT_EQ(samples.size(), 2 * 9001U);
    for (std::size_t n = 0; n < 9001; ++n) {
      ASSERT_NEAR(samples[2 * n], sound[3 * n + 2], step) << n;
      ASSERT_NEAR(samples[2 * n + 1], sound[3 * n], step) << n;
    }
  }
}

TEST(AudioReaderTest, RefusesConversionsThatNoSoundNeeds) {
  const TestFolder folder;
  Audio::AudioReaderOptions options;
  options.samplingRate = 16000;
  options.resample = true;
  for (const int rate : {1, 15, 2000000000}) {
    const std::string path = folder / std::to_string(rate);
    writeSound(path, rate, 1, noise(100, 6));
    EXPECT_EQ(refusal(path, options), path + ": the sampling rate is " + std::to_string(rate) +
                                          " Hz, expected 16 to 16000000 Hz for a conversion to "
                                          "16000 Hz");
  }
  writeSound(folder / "slow", 16, 1, noise(100, 6));
  Audio::AudioReader reader(folder / "slow", options);
  EXPECT_EQ(readAll(reader).size(), 100 * 1000U);
}

TEST(AudioReaderTest, RefusesAnotherSamplingRateUnlessAsked) {
  const TestFolder folder;
  const std::string path = folder / "in.wav";
  writeSound(path, 48000, 1, noise(100, 6));
  Audio::AudioReaderOptions options;
  options.samplingRate = 16000;
  EXPECT_EQ(refusal(path, options),
            path +
                ": the sampling rate is 48000 Hz, expected 16000 Hz (set RESAMPLE to true to "
                "convert it)");
}

// A tone keeps its frequency, phase and level, so time is neither stretched nor shifted.
TEST(AudioReaderTest, ResamplesInPlace) {
  const TestFolder folder;
  const auto tone = [](double frequency, int rate, int n) {
    return 0.5 * std::sin(2 * std::numbers::pi * frequency * n / rate);
  };
  std::vector<float> sound;
  for (int n = 0; n < 44100; ++n) {
    sound.push_back(static_cast<float>(tone(440, 44100, n)));
    sound.push_back(static_cast<float>(tone(1000, 44100, n)));
  }
  writeSound(folder / "in.wav", 44100, 2, sound);
  Audio::AudioReaderOptions options;
  options.samplingRate = 16000;
  options.resample = true;
  options.channels = "2,1";
  Audio::AudioReader reader(folder / "in.wav", options);
  EXPECT_EQ(reader.announcedSamples(), 16000);
  const std::vector<float> samples = readAll(reader);
  EXPECT_NEAR(static_cast<double>(samples.size()), 2 * 16000, 2);
  for (int n = 1000; n < 15000; ++n) {
    ASSERT_NEAR(samples[2 * n], tone(1000, 16000, n), 1e-4) << n;
    ASSERT_NEAR(samples[2 * n + 1], tone(440, 16000, n), 1e-4) << n;
  }
}

TEST(AudioReaderTest, RefusesWhatIsNoAudioFile) {
  const TestFolder folder;
  EXPECT_THAT(refusal(folder / "missing.wav"),
              testing::StartsWith(folder / "missing.wav: cannot be read as an audio file: "));
  EXPECT_THAT(refusal(folder.write("text.wav", "no sound at all")), HasSubstr("text.wav: cannot"));
  EXPECT_THAT(refusal(folder.write("empty.wav", "")), HasSubstr("empty.wav: cannot"));
  EXPECT_THAT(refusal(folder.write("head.wav", std::string("RIFF\x10\0\0\0WAVE", 12))),
              HasSubstr("head.wav: cannot"));
}

TEST(AudioReaderTest, NamesTheFileWhenAChannelIsMissing) {
  const TestFolder folder;
  writeSound(folder / "in.wav", 16000, 2, noise(10, 7));
  Audio::AudioReaderOptions options;
  options.channels = "3";
  EXPECT_EQ(
      refusal(folder / "in.wav", options),
      folder / "in.wav: CHANNELS is \"3\": \"3\" does not fit a file whose channels are 1 to 2");
}

/// Keeps the first part of a file.
void cutOff(const std::string& path) {
  std::filesystem::resize_file(path, std::filesystem::file_size(path) * 6 / 10);
}

TEST(AudioReaderTest, ReportsAFileThatIsCutOff) {
  const TestFolder folder;
  const std::vector<float> sound = noise(20000, 8);
  writeSound(folder / "whole.wav", 16000, 1, sound);
  writeSound(folder / "cut.wav", 16000, 1, sound);
  cutOff(folder / "cut.wav");

  EXPECT_TRUE(readFile(folder / "whole.wav").warnings.empty());
  const Reading cut = readFile(folder / "cut.wav");
  EXPECT_THAT(cut.warnings,
              ElementsAre(testing::MatchesRegex(
                  ".*/cut.wav: the file is cut off: it holds 1[12][0-9]{3} samples, and its header "
                  "announces more")));
  ASSERT_GT(cut.samples.size(), 11000U);
  EXPECT_TRUE(std::equal(cut.samples.begin(), cut.samples.end(), sound.begin()));
}

TEST(AudioReaderTest, StopsAtAPlaceThatCannotBeDecoded) {
  const TestFolder folder;
  writeSound(folder / "cut.flac", 16000, 1, noise(50000, 9), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
  cutOff(folder / "cut.flac");
  Audio::AudioReader reader(folder / "cut.flac");
  EXPECT_THAT(messageOf<Audio::AudioError>([&] { readAll(reader); }),
              testing::MatchesRegex(".*/cut.flac: cannot be decoded after sample [0-9]+: .*"));
}

TEST(AudioReaderTest, ReadsAFileWithoutSamples) {
  const TestFolder folder;
  writeSound(folder / "none.wav", 16000, 2, {});
  const Reading reading = readFile(folder / "none.wav");
  EXPECT_TRUE(reading.samples.empty());
  EXPECT_TRUE(reading.warnings.empty());
}

TEST(AudioReaderTest, ReplacesOrKeepsWhatIsNotFinite) {
  const TestFolder folder;
  std::vector<float> sound(2 * 10000, 0.25F);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  sound[2 * 100 + 1] = nan;
  sound[2 * 150] = infinity;    // less than 100 samples later: the same run
  sound[2 * 8000] = -infinity;  // a second run
  sound[2 * 9000] = -1e16F;     // finite, and a third one
  sound[2 * 9500] = 1e14F;      // still a number to work with
  writeSound(folder / "in.wav", 1000, 2, sound);

  Audio::AudioReaderOptions options;
  options.reportGap = 100;
  const Reading zeroed = readFile(folder / "in.wav", options);
  const std::string prefix = folder / "in.wav: samples that are not finite from ";
  EXPECT_THAT(
      zeroed.warnings,
      ElementsAre(prefix + "0.100000 s on (sample 100, channel 2); replaced by 0",
                  prefix + "8.000000 s on (sample 8000, channel 1); replaced by 0",
                  folder / "in.wav: samples that are no sound (beyond 1e15) from 9.000000 s "
                           "on (sample 9000, channel 1); replaced by 0"));
  for (const std::size_t n : {2 * 100 + 1, 2 * 150, 2 * 8000, 2 * 9000}) sound[n] = 0;
  EXPECT_EQ(zeroed.samples, sound);

  options.nonFinite = Audio::nonFiniteNamed("KEEP");
  const Reading kept = readFile(folder / "in.wav", options);
  EXPECT_EQ(kept.warnings.size(), 3U);
  EXPECT_TRUE(std::isnan(kept.samples[2 * 100 + 1]));
  EXPECT_EQ(kept.samples[2 * 150], infinity);
  EXPECT_EQ(kept.samples[2 * 9000], -1e16F);
}

TEST(TimeRangesTest, ReadsRangesAndRefusesOthers) {
  const std::vector<Audio::TimeRange> ranges = Audio::parseTimeRanges("0-1.5, 4-5.25");
  ASSERT_EQ(ranges.size(), 2U);
  EXPECT_EQ(ranges[0].end, 1.5);
  EXPECT_EQ(ranges[1].begin, 4.0);
  for (const char* text : {"", "1", "2-1", "1-1", "a-2", "-1-2", "0-inf", "0-nan"}) {
    EXPECT_THAT(messageOf<Audio::AudioError>([&] { Audio::parseTimeRanges(text); }),
                HasSubstr("expected seconds begin-end"))
        << text;
  }
}

}  // namespace
