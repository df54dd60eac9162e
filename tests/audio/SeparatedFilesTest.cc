// Sound out: WAV files, alignment, sources that come and go, the timeline.

#include "audio/SeparatedFiles.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "audio/OutputFile.h"
#include "audio/WavWriter.h"
#include "dsp/DataError.h"
#include "gtest/gtest.h"
#include "tests/support/AudioTesting.h"

using testing::ElementsAre;

namespace {

constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();

// ---- one file

struct Format {
  const char* name;
  int libraryFormat;
  float step;  // largest error
};

class WavFormatTest : public testing::TestWithParam<Format> {};

TEST_P(WavFormatTest, KeepsSamplesAlsoWhenClosedBetween) {
  const TestFolder folder;
  const std::vector<float> sound = noise(3 * 5000, 10, 0.99F);
  const Audio::WavFormat format{22050, 3, Audio::sampleFormatNamed(GetParam().name)};
  Audio::WavWriter writer(folder / "a.wav", format, false);
  writer.writeSilence(5000);
  writer.write(sound.data(), 1001);
  writer.suspend();
  writer.write(&sound[3 * 1001], 3999);
  EXPECT_THAT(folder.names(), ElementsAre(testing::MatchesRegex("a\\.wav\\.[a-z0-5]{8}\\.part")));
  writer.finish();
  EXPECT_THAT(folder.names(), ElementsAre("a.wav"));

  const Sound read = readSound(folder / "a.wav");
  EXPECT_EQ(read.samplingRate, 22050);
  EXPECT_EQ(read.channels, 3);
  EXPECT_EQ(read.format, SF_FORMAT_WAV | GetParam().libraryFormat);
  ASSERT_EQ(read.samples.size(), 30000U);
  for (std::size_t n = 0; n < 15000; ++n) {
    ASSERT_EQ(read.samples[n], 0.0F);
    ASSERT_NEAR(read.samples[15000 + n], sound[n], GetParam().step);
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, WavFormatTest,
                         testing::Values(Format{"PCM_16", SF_FORMAT_PCM_16, 0.501F / 32768},
                                         Format{"PCM_24", SF_FORMAT_PCM_24, 0.51F / 8388608},
                                         Format{"FLOAT", SF_FORMAT_FLOAT, 0.0F}));

TEST(WavWriterTest, CountsWhatItClipsOrReplaces) {
  const TestFolder folder;
  const float top = 32767.0F / 32768.0F;
  const std::vector<float> sound = {0.5F, 1.0F, -1.0F, 1.5F, -3.0F, NOT_A_NUMBER, top};
  for (const char* name : {"PCM_16", "FLOAT"}) {
    const bool isFloat = std::string(name) == "FLOAT";
    Audio::WavWriter writer(folder / name, {16000, 1, Audio::sampleFormatNamed(name)}, false);
    writer.write(sound.data(), sound.size());
    writer.finish();
    EXPECT_EQ(writer.clippedSamples(), isFloat ? 0 : 3);  // 1.0 is just beyond the largest number
    EXPECT_EQ(writer.nonFiniteSamples(), 1);
    EXPECT_EQ(writer.peak(), 3.0F);
    EXPECT_THAT(readSound(folder / name).samples,
                isFloat ? ElementsAre(0.5F, 1.0F, -1.0F, 1.5F, -3.0F, 0.0F, top)
                        : ElementsAre(0.5F, top, -1.0F, top, -1.0F, 0.0F, top));
  }
}

TEST(OutputFileTest, ReplacesOnlyWhatItMayAndOnlyWithAWholeFile) {
  const TestFolder folder;
  const std::string path = folder.write("a", "precious");
  const auto refusal = [](const std::string& name, bool overwrite) {
    return messageOf<DataError>([&] { Audio::OutputFile(name, overwrite).finish(); });
  };
  const auto content = [](const std::string& name) {
    std::ifstream in(name);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  EXPECT_EQ(refusal(path, false), path + ": exists already, expected a new name");
  EXPECT_EQ(refusal("/dev/null", true),
            "/dev/null: is no file that could be replaced, expected a new name");
  {
    const std::ifstream reading(path);
    EXPECT_EQ(refusal(path, true), path + ": is being read by this run, expected another name");
  }
  {
    Audio::OutputFile abandoned(path, true);
    abandoned.write("half");
    abandoned.suspend();  // now it has a temporary name
    EXPECT_THAT(folder.names(), testing::SizeIs(2));
  }
  EXPECT_EQ(content(path), "precious");

  Audio::OutputFile removed(path, true);
  removed.suspend();
  Audio::OutputFile::removeAll();
  EXPECT_THAT(folder.names(), ElementsAre("a"));
  EXPECT_EQ(messageOf<DataError>([&] { removed.resume(); }),
            path + ": cannot be written: No such file or directory");

  Audio::OutputFile whole(path, true);
  Audio::OutputFile late(folder / "b", true);
  folder.write("b", "another run's");  // it came into being since
  whole.write("whole");
  whole.finish();
  EXPECT_EQ(content(path), "whole");
  EXPECT_THROW(late.finish(), DataError);
  EXPECT_EQ(content(folder / "b"), "another run's");
}

// ---- all files of a run

constexpr int RATE = 1000;
const Audio::FrameLayout LAYOUT(64, 16);

class SeparatedFilesTest : public testing::Test {
 protected:
  SeparatedFilesTest() {
    options.directory = folder / "out";
    options.samplingRate = RATE;
    options.format = Audio::SampleFormat::Float;
  }

  Audio::SeparatedFiles filesOf(const Audio::SeparatedFilesOptions& given) const {
    return {given, LAYOUT};
  }

  /// Gives each frame's samples to the ids that idsAt names for it.
  template <class IdsAt>
  static void pass(const std::vector<float>& sound, Audio::SeparatedFiles& files, IdsAt idsAt) {
    const auto total = static_cast<std::int64_t>(sound.size());
    for (std::int64_t frame = 0; frame < LAYOUT.frameCount(total); ++frame) {
      const std::int64_t begin = std::clamp<std::int64_t>(LAYOUT.start(frame), 0, total);
      const std::int64_t end = std::clamp<std::int64_t>(LAYOUT.start(frame + 1), 0, total);
      Audio::SeparatedFiles::Signals signals;
      for (const int id : idsAt(frame)) signals[id] = sound.data() + begin;
      files.addFrame(idsAt(frame));
      files.write(signals, static_cast<std::size_t>(end - begin));
    }
    files.finish();
  }

  std::vector<float> written(int id) const {
    return readSound(folder / ("out/source_" + std::to_string(id) + ".wav")).samples;
  }

  nlohmann::json timeline() const {
    std::ifstream in(folder / "out/timeline.json");
    return nlohmann::json::parse(in);
  }

  const TestFolder folder;
  Audio::SeparatedFilesOptions options;
};

TEST_F(SeparatedFilesTest, ASourceThatReturnsContinuesAfterSilence) {
  const std::vector<float> sound = noise(1600, 12);  // 103 frames
  Audio::SeparatedFiles files = filesOf(options);
  // Source 5 is there in frames 10 to 29 and 60 to 79, and source 4 in the others.
  pass(sound, files, [](std::int64_t frame) {
    return std::vector{(frame >= 10 && frame < 30) || (frame >= 60 && frame < 80) ? 5 : 4};
  });

  const std::vector<float> out = written(5);
  std::vector<float> sum = written(4);
  ASSERT_EQ(out.size(), sum.size());
  for (std::size_t n = 0; n < out.size(); ++n) {
    sum[n] += out[n];
    // Frame f completes samples 16 f - 48 to 16 f - 33.
    const auto isIn = [n](std::size_t begin, std::size_t end) { return n >= begin && n < end; };
    const bool isHeard = isIn(16 * 10 - 48, 16 * 30 - 48) || isIn(16 * 60 - 48, 16 * 80 - 48);
    ASSERT_EQ(out[n], isHeard ? sound[n] : 0.0F) << n;
  }
  EXPECT_EQ(sum, sound);

  const nlohmann::json document = timeline();
  EXPECT_EQ(document["samples"], 1600);
  EXPECT_EQ(document["sampling_rate"], RATE);
  EXPECT_EQ(document["sources"][1]["id"], 5);
  EXPECT_EQ(document["sources"][1]["file"], "source_5.wav");
  // The 16 samples around the centre 16 f - 16 of each frame, within the recording.
  EXPECT_EQ(document["sources"][1]["active"], nlohmann::json({{0.136, 0.456}, {0.936, 1.256}}));
  EXPECT_EQ(document["sources"][0]["active"],
            nlohmann::json({{0.0, 0.136}, {0.456, 0.936}, {1.256, 1.6}}));
}

TEST_F(SeparatedFilesTest, HasOpenFilesOnlyForSourcesThatSound) {
  const auto openFiles = [] {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return std::distance(begin(entries), end(entries));
  };
  Audio::SeparatedFiles files = filesOf(options);
  const auto before = openFiles();
  auto most = before;
  // Every second frame has an id of its own, which returns 50 ids later.
  pass(noise(1600, 17), files, [&](std::int64_t frame) {
    most = std::max(most, openFiles());
    return frame % 2 == 0 ? std::vector{static_cast<int>(frame % 100)} : std::vector<int>();
  });
  EXPECT_EQ(files.report().size(), 50U);
  EXPECT_LE(most - before, 20);  // the first sources, the recording, and what sounds or just did
}

TEST_F(SeparatedFilesTest, CountsWhatIsSpoiltAndSpoilsNothingElse) {
  std::vector<float> sound(1000, 0.25F);
  for (const std::size_t n : {100, 200, 900}) sound[n] = 1.75F;
  sound[500] = NOT_A_NUMBER;
  options.format = Audio::SampleFormat::Pcm24;
  Audio::SeparatedFiles files = filesOf(options);
  pass(sound, files, [](auto) { return std::vector{0}; });
  ASSERT_EQ(files.report().size(), 1U);
  EXPECT_EQ(files.report()[0].peak, 1.75F);
  EXPECT_EQ(timeline()["sources"][0]["clipped_samples"], 3);
  EXPECT_EQ(timeline()["sources"][0]["non_finite_samples"], 1);
  const std::string path = folder / "out/source_0.wav";
  EXPECT_THAT(files.remarks("FLOAT"),
              ElementsAre(path + ": 3 samples were clipped; the largest was 1.75 times full scale: "
                                 "a recording softer by 4.9 dB would fit, and FLOAT keeps them",
                          path + ": 1 samples were not finite and written as 0"));
  const std::vector<float> out = written(0);
  for (std::size_t n = 0; n < out.size(); ++n) {
    ASSERT_NEAR(out[n], n == 500 ? 0.0F : std::min(sound[n], 1.0F), 1e-5) << n;
  }
}

TEST_F(SeparatedFilesTest, RemovesFilesOfAnEarlierRunThatTheNewOneLacksAndNoOthers) {
  std::filesystem::create_directory(folder / "out");
  folder.write("out/timeline.json",
               R"({"sources": [{"file": "source_9.wav"}, {"file": "other_1.wav"},
      {"file": "../mine.wav"}, {"file": "source_3.wav"}, {"file": "notes.txt"}]})");
  for (const char* name : {"mine.wav", "out/source_9.wav", "out/other_1.wav", "out/source_3.wav",
                           "out/notes.txt", "out/source_8.wav", "out/source_3.wav.abcdefgh.part"}) {
    folder.write(name, "earlier");
  }
  options.overwrite = true;
  {
    Audio::SeparatedFiles abandoned = filesOf(options);
    EXPECT_THAT(messageOf<DataError>([&] { filesOf(options); }),
                testing::HasSubstr("out: another run is writing into it"));
  }
  EXPECT_EQ(folder.names("out").size(), 6U);  // what was left unfinished is gone
  Audio::SeparatedFiles files = filesOf(options);
  pass(noise(1000, 11), files, [](auto) { return std::vector{3}; });
  EXPECT_THAT(files.remarks(""),
              ElementsAre("removed from an earlier run: " + (folder / "out/source_9.wav") + ", " +
                          (folder / "out/other_1.wav")));
  EXPECT_THAT(folder.names("out"),
              ElementsAre("notes.txt", "source_3.wav", "source_8.wav", "timeline.json"));
  EXPECT_TRUE(std::filesystem::exists(folder / "mine.wav"));
}

TEST_F(SeparatedFilesTest, RefusesFilesOfAnEarlierRunAndUnusableNames) {
  const auto refusal = [&] { return messageOf<DataError>([&] { filesOf(options); }); };
  std::filesystem::create_directory(folder / "out");
  folder.write("out/source_mixture.wav", "not ours");
  EXPECT_NO_THROW(filesOf(options));
  for (const char* name : {"out/timeline.json", "out/source_17.wav"}) {
    const std::string path = folder.write(name, "earlier");
    EXPECT_EQ(refusal(), path +
                             ": exists already, expected no files of an earlier run (set "
                             "OVERWRITE to true to replace them)");
    std::filesystem::remove(path);
  }
  options.prefix = "../source_";
  EXPECT_EQ(refusal(), "PREFIX is \"../source_\", expected the begin of a file name without \"/\"");
  options.prefix = "source_";
  options.directory = folder.write("file", "") + "/out";
  EXPECT_EQ(refusal(), folder / "file/out: cannot be made or is no folder: Not a directory");
  const std::string tooLong = folder / std::string(300, 'x');
  options.directory = tooLong;
  EXPECT_EQ(refusal(), tooLong + ": cannot be made or is no folder: File name too long");
  EXPECT_THAT(messageOf<DataError>([&] { Audio::WavWriter(tooLong, {}, false); }),
              testing::StartsWith(tooLong + ": cannot be written: "));
  EXPECT_EQ(messageOf<DataError>([] { Audio::sampleFormatNamed("PCM_32"); }),
            "FORMAT is \"PCM_32\", expected PCM_16, PCM_24 or FLOAT");
}

}  // namespace
