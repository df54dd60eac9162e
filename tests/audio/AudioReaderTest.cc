// Audio files in: formats, channels, sampling rates, broken files, samples that are not finite.

#include "audio/AudioReader.h"

#include <sndfile.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "audio/Channels.h"
#include "dsp/DataError.h"
#include "gtest/gtest.h"
#include "tests/support/AudioTesting.h"

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

Audio::AudioReaderOptions selecting(const std::string& channels) {
  Audio::AudioReaderOptions options;
  options.channels = channels;
  return options;
}

/// Wants 16 kHz.
Audio::AudioReaderOptions converting(bool resample, const std::string& channels = "") {
  Audio::AudioReaderOptions options = selecting(channels);
  options.samplingRate = 16000;
  options.resample = resample;
  return options;
}

TEST(ChannelTextTest, SelectsChannelsOrIsRefused) {
  const std::pair<std::string, std::vector<int>> good[] = {
      {"", {0, 1, 2, 3, 4, 5, 6, 7}}, {"1-4,7", {0, 1, 2, 3, 6}}, {" 8 , 2-2 ,1", {7, 1, 0}}};
  for (const auto& [text, channels] : good) EXPECT_EQ(Audio::selectedChannels(text, 8), channels);

  const std::pair<std::string, std::string> bad[] = {
      {"1,x", "found \"x\", expected channel numbers from 1 such as \"1-4,7\""},
      {"1,,2", "found \"\", expected channel numbers from 1 such as \"1-4,7\""},
      {"1-", "found \"1-\", expected channel numbers from 1 such as \"1-4,7\""},
      {"-3", "found \"-3\", expected channel numbers from 1 such as \"1-4,7\""},
      {"99999999999", "found \"99999999999\", expected channel numbers from 1 such as \"1-4,7\""},
      {"0", "\"0\" does not fit a file whose channels are 1 to 8"},
      {"7-9", "\"7-9\" does not fit a file whose channels are 1 to 8"},
      {"4-2", "\"4-2\" does not fit a file whose channels are 1 to 8"},
      {"1-3,2", "channel 2 is named twice"}};
  for (const auto& [text, message] : bad) {
    EXPECT_EQ(messageOf<DataError>([text = text] { Audio::selectedChannels(text, 8); }),
              "CHANNELS is \"" + text + "\": " + message);
  }
}

TEST(AudioReaderTest, ReadsFormatsAndSelectedChannels) {
  const TestFolder folder;
  const std::vector<float> sound = noise(3 * 9001, 5);
  const std::pair<int, float> formats[] = {{SF_FORMAT_WAV | SF_FORMAT_FLOAT, 0.0F},
                                           {SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1.0F / 32768},
                                           {SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 1.0F / 8388608},
                                           {SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 1.0F / 32768}};
  for (const auto& [format, step] : formats) {
    writeSound(folder / "sound", 44100, 3, sound, format);
    Audio::AudioReader reader(folder / "sound", selecting("3,1"));
    EXPECT_EQ(reader.samplingRate(), 44100);
    EXPECT_EQ(reader.announcedSamples(), 9001);
    const std::vector<float> samples = readAll(reader);
    ASSERT_EQ(samples.size(), 2 * 9001U);
    for (std::size_t n = 0; n < 9001; ++n) {
      ASSERT_NEAR(samples[2 * n], sound[3 * n + 2], step) << n;
      ASSERT_NEAR(samples[2 * n + 1], sound[3 * n], step) << n;
    }
  }
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
  Audio::AudioReader reader(folder / "in.wav", converting(true, "2,1"));
  EXPECT_EQ(reader.announcedSamples(), 16000);
  const std::vector<float> samples = readAll(reader);
  EXPECT_NEAR(static_cast<double>(samples.size()), 2 * 16000, 2);
  for (int n = 1000; n < 15000; ++n) {
    ASSERT_NEAR(samples[2 * n], tone(1000, 16000, n), 1e-4) << n;
    ASSERT_NEAR(samples[2 * n + 1], tone(440, 16000, n), 1e-4) << n;
  }
}

TEST(AudioReaderTest, RefusesWhatItCannotUse) {
  const TestFolder folder;
  for (const int rate : {15, 16, 16000000, 16000001}) {
    writeSound(folder / std::to_string(rate), rate, 1, noise(100, 6));
  }
  folder.write("text", "no sound at all");
  folder.write("head", std::string("RIFF\x10\0\0\0WAVE", 12));
  const std::string impossible = " Hz, expected 16 to 16000000 Hz for a conversion to 16000 Hz";
  const struct {
    const char* file;
    Audio::AudioReaderOptions options;
    std::string message;
  } cases[] = {
      {"missing", {}, "cannot be read as an audio file: "},
      {"text", {}, "cannot be read as an audio file: "},
      {"head", {}, "cannot be read as an audio file: "},
      {"16", selecting("3"), "CHANNELS is \"3\": \"3\" does not fit a file whose channels are "},
      {"16", converting(false),
       "the sampling rate is 16 Hz, expected 16000 Hz (set RESAMPLE to true to "},
      {"15", converting(true), "the sampling rate is 15" + impossible},
      {"16000001", converting(true), "the sampling rate is 16000001" + impossible}};
  for (const auto& [file, options, message] : cases) {
    EXPECT_THAT(messageOf<DataError>([&, file = file, options = options] {
                  Audio::AudioReader(folder / file, options);
                }),
                testing::StartsWith(folder / file + ": " + message));
  }
  EXPECT_NO_THROW(Audio::AudioReader(folder / "16000000", converting(true)));
  Audio::AudioReader slowest(folder / "16", converting(true));
  EXPECT_EQ(readAll(slowest).size(), 100 * 1000U);
}

TEST(AudioReaderTest, ComparesTheHeaderWithTheFile) {
  const TestFolder folder;
  const int samples = 1000;
  const struct {
    int format;
    std::uint64_t sizeAt;  // where the header says how much sound there is; 0: at two places
    int sizeBytes;
  } cases[] = {{SF_FORMAT_WAV, 40, 4},  {SF_FORMAT_WAV | SF_ENDIAN_BIG, 40, 4},
               {SF_FORMAT_RF64, 28, 8}, {SF_FORMAT_AIFF, 0, 0},
               {SF_FORMAT_AU, 8, 4},    {SF_FORMAT_AU | SF_ENDIAN_LITTLE, 8, 4}};
  for (const auto& [format, sizeAt, sizeBytes] : cases) {
    SCOPED_TRACE(format);
    const std::string path = folder / "sound";
    std::vector<std::string> warnings;
    Audio::AudioReaderOptions options;
    options.warn = [&](const std::string& text) { warnings.push_back(text); };
    const auto count = [&] {
      Audio::AudioReader reader(path, options);
      return readAll(reader).size();
    };
    writeSound(path, 16000, 1, noise(samples, 7), format | SF_FORMAT_PCM_16);
    EXPECT_EQ(count(), samples);
    EXPECT_THAT(warnings, testing::IsEmpty());
    const auto whole = std::filesystem::file_size(path);
    std::filesystem::resize_file(path, whole - samples);
    EXPECT_EQ(count(), samples / 2);
    EXPECT_THAT(warnings, ElementsAre(path + ": the file is cut off: it holds 500 samples, and its "
                                             "header announces more"));

    if (sizeAt == 0) continue;
    std::fstream(path, std::ios::in | std::ios::out | std::ios::binary)
        .seekp(static_cast<std::streamoff>(sizeAt))
        .write("\0\0\0\0\0\0\0", sizeBytes);
    EXPECT_THAT(messageOf<DataError>(count),
                AllOf(testing::StartsWith(path + ": the header announces no samples, but "),
                      HasSubstr(" bytes follow it")));
    writeSound(path, 16000, 1, {}, format | SF_FORMAT_PCM_16);
    EXPECT_EQ(messageOf<DataError>(count), path + ": holds no samples, expected one at least");
  }
}

TEST(AudioReaderTest, ReplacesOrKeepsWhatIsNotFinite) {
  const TestFolder folder;
  std::vector<float> sound(2 * 10000, 0.25F);
  const float infinity = std::numeric_limits<float>::infinity();
  sound[2 * 100 + 1] = std::numeric_limits<float>::quiet_NaN();
  sound[2 * 150] = infinity;    // less than 100 samples later: the same run
  sound[2 * 8000] = -infinity;  // a second run
  sound[2 * 9000] = -1e16F;     // finite, and a third one
  sound[2 * 9500] = 1e14F;      // still a number to work with
  writeSound(folder / "in.wav", 1000, 2, sound);
  std::vector<std::string> warnings;
  Audio::AudioReaderOptions options;
  options.reportGap = 100;
  options.warn = [&](const std::string& text) { warnings.push_back(text); };

  Audio::AudioReader zeroing(folder / "in.wav", options);
  const std::vector<float> zeroed = readAll(zeroing);
  const std::string prefix = folder / "in.wav: samples that are ";
  EXPECT_THAT(
      warnings,
      ElementsAre(
          prefix + "not finite from 0.100000 s on (sample 100, channel 2); replaced by 0",
          prefix + "not finite from 8.000000 s on (sample 8000, channel 1); replaced by 0",
          prefix + "no sound (beyond 1e15) from 9.000000 s on (sample 9000, channel 1); replaced "
                   "by 0"));
  for (const std::size_t n : {2 * 100 + 1, 2 * 150, 2 * 8000, 2 * 9000}) sound[n] = 0;
  EXPECT_EQ(zeroed, sound);

  warnings.clear();
  options.nonFinite = Audio::nonFiniteNamed("KEEP");
  Audio::AudioReader keeping(folder / "in.wav", options);
  const std::vector<float> kept = readAll(keeping);
  EXPECT_THAT(warnings, testing::SizeIs(3));
  EXPECT_THAT(warnings, testing::Each(HasSubstr("; passed on")));
  EXPECT_TRUE(std::isnan(kept[2 * 100 + 1]));
  EXPECT_EQ(kept[2 * 150], infinity);
  EXPECT_EQ(kept[2 * 9000], -1e16F);
}

}  // namespace
