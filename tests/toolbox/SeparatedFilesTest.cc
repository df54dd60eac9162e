// Sound out: WAV files, alignment, sources that come and go, the timeline.

#include "toolbox/core/SeparatedFiles.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "AudioTesting.h"
#include "gtest/gtest.h"
#include "toolbox/core/AudioError.h"
#include "toolbox/core/FrameReader.h"
#include "toolbox/core/WavWriter.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr int RATE = 1000;
const Audio::FrameLayout LAYOUT(64, 16);

Audio::FrameSynthesizer synthesizer() { return {LAYOUT, Audio::WindowType::Hann, false}; }

Audio::SeparatedFilesOptions floatFilesIn(const TestFolder& folder) {
  Audio::SeparatedFilesOptions options;
  options.directory = folder / "out";
  options.samplingRate = RATE;
  options.format = Audio::SampleFormat::Float;
  return options;
}

/// Sends the first channel's spectra of a recording to the ids that idsAt names for each frame.
template <class IdsAt>
void pass(const std::string& recording, Audio::SeparatedFiles& files, IdsAt idsAt,
          bool withLength = true) {
  Audio::FrameReader reader(Audio::AudioReader(recording), LAYOUT, Audio::WindowType::Hann);
  while (reader.next()) {
    Audio::SeparatedFiles::Spectra spectra;
    for (const int id : idsAt(reader.frame())) spectra[id] = reader.spectra().data();
    files.addFrame(spectra,
                   withLength ? std::optional<int>(reader.finishedSamples()) : std::nullopt);
  }
}

nlohmann::json timelineOf(const TestFolder& folder) {
  std::ifstream in(folder / "out/timeline.json");
  return nlohmann::json::parse(in);
}

// ---- one file

struct Format {
  const char* name;
  int libraryFormat;
  float step;  // largest error
};

class WavFormatTest : public testing::TestWithParam<Format> {};

TEST_P(WavFormatTest, KeepsSamples) {
  const TestFolder folder;
  const std::string path = folder / "a.wav";
  const std::vector<float> sound = noise(2 * 5000, 10, 0.99F);
  const Audio::WavFormat format{22050, 2, Audio::sampleFormatNamed(GetParam().name)};
  Audio::WavWriter writer(path, format, false);
  writer.writeSilence(5000);
  writer.write(sound.data(), 5000);
  EXPECT_EQ(writer.samplesWritten(), 10000);
  EXPECT_EQ(writer.clippedSamples(), 0);
  EXPECT_THAT(folder.names(), ElementsAre("a.wav.part"));
  writer.finish();
  EXPECT_THAT(folder.names(), ElementsAre("a.wav"));

  const Sound read = readSound(path);
  EXPECT_EQ(read.samplingRate, 22050);
  EXPECT_EQ(read.channels, 2);
  EXPECT_EQ(read.format, SF_FORMAT_WAV | GetParam().libraryFormat);
  ASSERT_EQ(read.samples.size(), 20000U);
  for (std::size_t n = 0; n < 10000; ++n) {
    ASSERT_EQ(read.samples[n], 0.0F);
    ASSERT_NEAR(read.samples[10000 + n], sound[n], GetParam().step);
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, WavFormatTest,
                         testing::Values(Format{"PCM_16", SF_FORMAT_PCM_16, 0.501F / 32768},
                                         Format{"PCM_24", SF_FORMAT_PCM_24, 0.51F / 8388608},
                                         Format{"FLOAT", SF_FORMAT_FLOAT, 0.0F}));

TEST(WavWriterTest, CountsWhatItClipsOrReplaces) {
  const TestFolder folder;
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const std::vector<float> sound = {0.5F, 1.0F, -1.0F, 1.5F, -3.0F, nan, 32767.0F / 32768.0F};
  for (const char* name : {"PCM_16", "FLOAT"}) {
    const bool isFloat = std::string(name) == "FLOAT";
    Audio::WavWriter writer(folder / name, {16000, 1, Audio::sampleFormatNamed(name)}, false);
    writer.write(sound.data(), sound.size());
    writer.finish();
    EXPECT_EQ(writer.clippedSamples(), isFloat ? 0 : 3);  // 1.0 is just beyond the largest number
    EXPECT_EQ(writer.nonFiniteSamples(), 1);
    EXPECT_EQ(writer.peak(), 3.0F);
    const float top = 32767.0F / 32768.0F;
    EXPECT_THAT(readSound(folder / name).samples,
                isFloat ? ElementsAre(0.5F, 1.0F, -1.0F, 1.5F, -3.0F, 0.0F, top)
                        : ElementsAre(0.5F, top, -1.0F, top, -1.0F, 0.0F, top));
  }
}

TEST(WavWriterTest, LeavesNothingUnlessFinished) {
  const TestFolder folder;
  {
    Audio::WavWriter writer(folder / "a.wav", {}, false);
    writer.writeSilence(10);
  }
  EXPECT_THAT(folder.names(), ElementsAre());
}

TEST(WavWriterTest, ReplacesAFileOnlyWhenAskedAndOnlyWithAWholeOne) {
  const TestFolder folder;
  const std::string path = folder.write("a.wav", "precious");
  EXPECT_EQ(messageOf<Audio::AudioError>([&] { Audio::WavWriter(path, {}, false); }),
            path + ": exists already (set OVERWRITE to true to replace it)");
  { Audio::WavWriter abandoned(path, {}, true); }
  std::ifstream in(path);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "precious");
  Audio::WavWriter writer(path, {}, true);
  writer.writeSilence(10);
  writer.finish();
  EXPECT_EQ(readSound(path).samples.size(), 10U);
}

TEST(WavWriterTest, SaysWhyItCannotWrite) {
  EXPECT_THAT(messageOf<Audio::AudioError>([] { Audio::WavWriter("/no/folder/a.wav", {}, false); }),
              testing::StartsWith("/no/folder/a.wav.part: cannot be written: "));
  EXPECT_EQ(messageOf<Audio::AudioError>([] { Audio::sampleFormatNamed("PCM_32"); }),
            "FORMAT is \"PCM_32\", expected PCM_16, PCM_24 or FLOAT");
}

TEST(WavWriterTest, ReportsAFullDisk) {
  if (!std::ifstream("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  const TestFolder folder;
  std::filesystem::create_symlink("/dev/full", folder / "a.wav.part");
  const std::string message = messageOf<Audio::AudioError>([&] {
    Audio::WavWriter writer(folder / "a.wav", {}, false);
    for (int i = 0; i < 100; ++i) writer.writeSilence(10000);
    writer.finish();
  });
  EXPECT_THAT(message, HasSubstr("a.wav.part: cannot be"));
}

// ---- all files of a run

TEST(SeparatedFilesTest, EachFileIsTheRecordingSampleBySample) {
  for (const int samples : {1000, 1008, 1, 17}) {  // 1008: a whole number of steps
    const TestFolder folder;
    const std::vector<float> sound = noise(static_cast<std::size_t>(samples), 11);
    writeSound(folder / "in.wav", RATE, 1, sound);
    Audio::SeparatedFiles files(floatFilesIn(folder), synthesizer());
    pass(folder / "in.wav", files, [](auto) { return std::vector{3, 12}; });
    files.finish();
    EXPECT_LT(differenceInDb(readSound(folder / "out/source_3.wav").samples, sound), -100);
    EXPECT_LT(differenceInDb(readSound(folder / "out/source_12.wav").samples, sound), -100);
  }
}

TEST(SeparatedFilesTest, AnImpulseStaysWhereItIs) {
  const TestFolder folder;
  for (const std::size_t place : {0, 5, 500, 999}) {
    std::vector<float> sound(1000);
    sound[place] = 1.0F;
    writeSound(folder / "in.wav", RATE, 1, sound);
    Audio::SeparatedFilesOptions options = floatFilesIn(folder);
    options.overwrite = true;
    Audio::SeparatedFiles files(options, synthesizer());
    pass(folder / "in.wav", files, [](auto) { return std::vector{0}; });
    files.finish();
    const std::vector<float> out = readSound(folder / "out/source_0.wav").samples;
    ASSERT_EQ(out.size(), sound.size());
    for (std::size_t n = 0; n < out.size(); ++n) ASSERT_NEAR(out[n], sound[n], 1e-6) << n;
  }
}

TEST(SeparatedFilesTest, ASourceThatReturnsContinuesAfterSilence) {
  const TestFolder folder;
  const std::vector<float> sound = noise(1600, 12);  // 103 frames
  writeSound(folder / "in.wav", RATE, 1, sound);
  Audio::SeparatedFiles files(floatFilesIn(folder), synthesizer());
  // Source 5 is there in frames 10 to 29 and 60 to 79; source 6 comes late and stays.
  pass(folder / "in.wav", files, [](std::int64_t frame) {
    std::vector<int> ids;
    if ((frame >= 10 && frame < 30) || (frame >= 60 && frame < 80)) ids.push_back(5);
    if (frame >= 90) ids.push_back(6);
    return ids;
  });
  files.finish();

  const std::vector<float> out = readSound(folder / "out/source_5.wav").samples;
  ASSERT_EQ(out.size(), sound.size());
  // Frame f covers samples 16 f - 48 to 16 f + 15: whole from 112 + 48 to 415, and so on.
  const auto expectWhole = [&](std::size_t begin, std::size_t end) {
    for (std::size_t n = begin; n < end; ++n) ASSERT_NEAR(out[n], sound[n], 1e-5) << n;
  };
  const auto expectSilence = [&](std::size_t begin, std::size_t end) {
    for (std::size_t n = begin; n < end; ++n) ASSERT_EQ(out[n], 0.0F) << n;
  };
  expectSilence(0, 16 * 10 - 48);
  expectWhole(16 * 10, 16 * 30 - 48);
  expectSilence(16 * 29 + 16, 16 * 60 - 48);
  expectWhole(16 * 60, 16 * 80 - 48);
  expectSilence(16 * 79 + 16, 1600);

  const nlohmann::json timeline = timelineOf(folder);
  EXPECT_EQ(timeline["samples"], 1600);
  EXPECT_EQ(timeline["sampling_rate"], RATE);
  ASSERT_EQ(timeline["sources"].size(), 2U);
  EXPECT_EQ(timeline["sources"][0]["id"], 5);
  EXPECT_EQ(timeline["sources"][0]["file"], "source_5.wav");
  // The 16 samples around the centre 16 f - 16 of each frame.
  const std::vector<std::vector<double>> active = timeline["sources"][0]["active"];
  EXPECT_EQ(active, (std::vector<std::vector<double>>{{0.136, 0.456}, {0.936, 1.256}}));
  const std::vector<std::vector<double>> late = timeline["sources"][1]["active"];
  EXPECT_EQ(late, (std::vector<std::vector<double>>{{1.416, 1.6}}));
}

/// How many files this process has open.
std::size_t openFiles() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

TEST(SeparatedFilesTest, HasOpenFilesOnlyForSourcesThatSound) {
  for (const auto format :
       {Audio::SampleFormat::Pcm16, Audio::SampleFormat::Pcm24, Audio::SampleFormat::Float}) {
    const TestFolder folder;
    const std::vector<float> sound = noise(1600, 17);
    writeSound(folder / "in.wav", RATE, 1, sound);
    Audio::SeparatedFilesOptions options = floatFilesIn(folder);
    options.format = format;
    Audio::SeparatedFiles files(options, synthesizer());
    std::size_t most = 0;
    const std::size_t before = openFiles();
    // Every third frame has an id of its own, which returns 51 frames later.
    pass(folder / "in.wav", files, [&](std::int64_t frame) {
      most = std::max(most, openFiles() - before);
      return frame % 3 == 0 ? std::vector{static_cast<int>(frame % 51)} : std::vector<int>();
    });
    files.finish();
    EXPECT_LE(most, 4U);  // the recording, and two sources at once, or what was just closed
    ASSERT_EQ(files.report().size(), 17U);
    // Frames do not meet within a file, so that all files' sum is the one that has every frame.
    std::vector<float> sum(sound.size());
    for (const Audio::SeparatedFile& file : files.report()) {
      const std::vector<float> part = readSound(file.path).samples;
      ASSERT_EQ(part.size(), sum.size());
      for (std::size_t n = 0; n < sum.size(); ++n) sum[n] += part[n];
    }
    options.directory = folder / "together";
    Audio::SeparatedFiles together(options, synthesizer());
    pass(folder / "in.wav", together,
         [](std::int64_t frame) { return frame % 3 == 0 ? std::vector{1} : std::vector<int>(); });
    together.finish();
    EXPECT_LT(differenceInDb(sum, readSound(folder / "together/source_1.wav").samples), -70);
  }
}

TEST(SeparatedFilesTest, WithoutALengthNoSoundIsLost) {
  const TestFolder folder;
  const std::vector<float> sound = noise(1000, 13);
  writeSound(folder / "in.wav", RATE, 1, sound);
  Audio::SeparatedFiles files(floatFilesIn(folder), synthesizer());
  pass(
      folder / "in.wav", files, [](auto) { return std::vector{0}; }, false);
  files.finish();
  std::vector<float> out = readSound(folder / "out/source_0.wav").samples;
  ASSERT_GE(out.size(), sound.size());
  out.resize(sound.size());
  EXPECT_LT(differenceInDb(out, sound), -100);
}

TEST(SeparatedFilesTest, FinishedEarlyHoldsWhatIsComplete) {
  const TestFolder folder;
  const std::vector<float> sound = noise(1000, 14);
  writeSound(folder / "in.wav", RATE, 1, sound);
  Audio::FrameReader reader(Audio::AudioReader(folder / "in.wav"), LAYOUT, Audio::WindowType::Hann);
  Audio::SeparatedFiles files(floatFilesIn(folder), synthesizer());
  for (int frame = 0; frame < 20; ++frame) {
    ASSERT_TRUE(reader.next());
    files.addFrame({{0, reader.spectra().data()}}, reader.finishedSamples());
  }
  files.finish();
  const std::vector<float> complete(sound.begin(), sound.begin() + 20 * 16 - 48);
  EXPECT_LT(differenceInDb(readSound(folder / "out/source_0.wav").samples, complete), -100);
  EXPECT_EQ(timelineOf(folder)["samples"], 20 * 16 - 48);
}

TEST(SeparatedFilesTest, CountsClippedSamplesPerSource) {
  const TestFolder folder;
  std::vector<float> sound(1000, 0.25F);
  for (const std::size_t n : {100, 500, 900}) sound[n] = 1.75F;
  writeSound(folder / "in.wav", RATE, 1, sound);
  Audio::SeparatedFilesOptions options = floatFilesIn(folder);
  options.format = Audio::SampleFormat::Pcm24;
  Audio::SeparatedFiles files(options, synthesizer());
  pass(folder / "in.wav", files, [](auto) { return std::vector{0}; });
  files.finish();
  ASSERT_EQ(files.report().size(), 1U);
  EXPECT_EQ(files.report()[0].clipped, 3);
  EXPECT_NEAR(files.report()[0].peak, 1.75F, 1e-5F);
  EXPECT_EQ(timelineOf(folder)["sources"][0]["clipped_samples"], 3);
}

TEST(SeparatedFilesTest, OneBadFrameSpoilsOnlyItsOwnSamples) {
  const TestFolder folder;
  const std::vector<float> sound = noise(1000, 15);
  writeSound(folder / "in.wav", RATE, 1, sound);
  Audio::FrameReader reader(Audio::AudioReader(folder / "in.wav"), LAYOUT, Audio::WindowType::Hann);
  Audio::SeparatedFiles files(floatFilesIn(folder), synthesizer());
  while (reader.next()) {
    std::vector<std::complex<float>> spectrum = reader.spectra();
    if (reader.frame() == 30) spectrum[3] = std::numeric_limits<float>::quiet_NaN();
    files.addFrame({{0, spectrum.data()}}, reader.finishedSamples());
  }
  files.finish();
  EXPECT_EQ(files.report()[0].nonFinite, 64);
  const std::vector<float> out = readSound(folder / "out/source_0.wav").samples;
  for (std::size_t n = 0; n < out.size(); ++n) {
    const bool isSpoiled = n >= 16 * 30 - 48 && n < 16 * 30 + 16;
    ASSERT_NEAR(out[n], isSpoiled ? 0.0F : sound[n], 1e-5) << n;
  }
}

TEST(SeparatedFilesTest, RefusesFilesOfAnEarlierRunAtOnce) {
  for (const char* name : {"timeline.json", "source_17.wav"}) {
    const TestFolder folder;
    std::filesystem::create_directory(folder / "out");
    const std::string path = folder.write(std::string("out/") + name, "earlier");
    Audio::SeparatedFilesOptions options = floatFilesIn(folder);
    EXPECT_EQ(messageOf<Audio::AudioError>([&] { Audio::SeparatedFiles(options, synthesizer()); }),
              path + ": exists already (set OVERWRITE to true to replace it)");
    options.overwrite = true;
    EXPECT_NO_THROW(Audio::SeparatedFiles(options, synthesizer()));
  }
  const TestFolder folder;
  std::filesystem::create_directory(folder / "out");
  folder.write("out/source_mixture.wav", "not ours");
  EXPECT_NO_THROW(Audio::SeparatedFiles(floatFilesIn(folder), synthesizer()));
}

TEST(SeparatedFilesTest, LeavesNothingUnlessFinished) {
  const TestFolder folder;
  writeSound(folder / "in.wav", RATE, 1, noise(1000, 16));
  {
    Audio::SeparatedFiles files(floatFilesIn(folder), synthesizer());
    pass(folder / "in.wav", files, [](auto) { return std::vector{0, 1}; });
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder / "out"));
}

TEST(SeparatedFilesTest, RefusesUnusableFoldersAndNames) {
  const TestFolder folder;
  Audio::SeparatedFilesOptions options = floatFilesIn(folder);
  options.directory = folder.write("file", "") + "/out";
  EXPECT_THAT(messageOf<Audio::AudioError>([&] { Audio::SeparatedFiles(options, synthesizer()); }),
              HasSubstr("/file/out: cannot be made or is no folder"));
  options = floatFilesIn(folder);
  options.prefix = "../source_";
  EXPECT_THAT(messageOf<Audio::AudioError>([&] { Audio::SeparatedFiles(options, synthesizer()); }),
              HasSubstr("PREFIX is \"../source_\""));
}

}  // namespace
