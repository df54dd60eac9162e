// Sound that comes through a pipe: formats, headers without sizes, raw samples, stalls.

#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>

#include "audio/AudioReader.h"
#include "audio/SeparatedStream.h"
#include "dsp/DataError.h"
#include "tests/support/AudioTesting.h"

using testing::HasSubstr;

namespace {

constexpr std::size_t FRAMES = 50001;  // more than a pipe holds, and an odd number of blocks

std::string bytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// A FIFO into which a thread writes bytes.
class Fifo {
 public:
  Fifo(const std::string& name, std::string content) : path(name), bytes(std::move(content)) {
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    writer = std::thread([this] {
      const int file = open(path.c_str(), O_WRONLY);
      std::size_t done = 0;
      for (ssize_t n = 1; n > 0 && done < bytes.size(); done += static_cast<std::size_t>(n)) {
        n = write(file, bytes.data() + done, std::min<std::size_t>(777, bytes.size() - done));
      }
      close(file);
    });
  }
  ~Fifo() { writer.join(); }

  std::string path;

 private:
  std::string bytes;
  std::thread writer;
};

std::vector<float> readAll(Audio::AudioReader& reader) {
  std::vector<float> all;
  std::vector<float> block(128 * static_cast<std::size_t>(reader.channelCount()));
  std::size_t got = 128;
  while (got == 128) {
    got = reader.read(block.data(), 128);
    all.insert(all.end(), block.begin(),
               block.begin() + static_cast<std::ptrdiff_t>(
                                   got * static_cast<std::size_t>(reader.channelCount())));
  }
  return all;
}

class Stream : public testing::Test {
 protected:
  void SetUp() override { signal(SIGPIPE, SIG_IGN); }

  std::vector<float> fromFifo(const std::string& bytes,
                              const Audio::AudioReaderOptions& options = {}) {
    const Fifo fifo(folder / ("fifo" + std::to_string(++count)), bytes);
    Audio::AudioReader reader(fifo.path, options);
    EXPECT_TRUE(Audio::AudioReader::isStream(fifo.path));
    announced = reader.announcedSamples();
    return readAll(reader);
  }

  TestFolder folder;
  std::optional<std::int64_t> announced;
  int count = 0;
};

// What a file gives, to the bit, behind a header of known length and of one that leaves it open, as
// programs write it that cannot go back.
TEST_F(Stream, GivesWhatTheFileGives) {
  const struct {
    int format;
    std::string marker;  // behind which, `offset` bytes on, the sound's size stands; "": not tried
    std::size_t offset = 4;
    bool isBigEndian = false;
  } cases[] = {{SF_FORMAT_WAV | SF_FORMAT_PCM_16, "data"},
               {SF_FORMAT_WAV | SF_FORMAT_PCM_24, "data"},
               {SF_FORMAT_WAV | SF_FORMAT_FLOAT, "data"},
               {SF_FORMAT_WAV | SF_ENDIAN_BIG | SF_FORMAT_PCM_16, "data", 4, true},
               {SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, "data"},
               {SF_FORMAT_RF64 | SF_FORMAT_PCM_16, ""},
               {SF_FORMAT_W64 | SF_FORMAT_PCM_16, "data\xF3\xAC", 16},
               {SF_FORMAT_AU | SF_FORMAT_PCM_16, ".snd", 8, true},
               {SF_FORMAT_AU | SF_FORMAT_ULAW, ".snd", 8, true},
               {SF_FORMAT_AU | SF_ENDIAN_LITTLE | SF_FORMAT_FLOAT, "dns.", 8},
               {SF_FORMAT_AIFF | SF_FORMAT_PCM_24, ""},
               {SF_FORMAT_FLAC | SF_FORMAT_PCM_24, ""}};
  const std::vector<float> sound = noise(3 * FRAMES, 11);
  for (const auto& [format, marker, offset, isBigEndian] : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << format);
    writeSound(folder / "file", 16000, 3, sound, format);
    Audio::AudioReader file(folder / "file");
    EXPECT_FALSE(Audio::AudioReader::isStream(folder / "file"));
    const std::vector<float> expected = readAll(file);
    ASSERT_EQ(expected.size(), sound.size());
    std::string bytes = bytesOf(folder / "file");
    EXPECT_TRUE(fromFifo(bytes) == expected);
    EXPECT_EQ(announced, FRAMES);
    for (const std::uint32_t open : {0U, 0x7FFFFF00U, 0x7FFFF000U, 0xFFFFFFFFU}) {
      if (marker.empty()) break;
      const std::size_t sizeAt = bytes.find(marker) + offset;
      for (std::size_t i = 0; i < 4; ++i) {
        bytes[sizeAt + i] = static_cast<char>(open >> 8 * (isBigEndian ? 3 - i : i));
      }
      EXPECT_TRUE(fromFifo(bytes) == expected) << open;
      EXPECT_EQ(announced, std::nullopt);
    }
  }
}

TEST_F(Stream, ReadsRawSamples) {
  const struct {
    std::string encoding, bytes;
    std::vector<float> samples;
  } cases[] = {{"S8", {"\x40\x80", 2}, {0.5F, -1.0F}},
               {"U8", {"\xC0\x00", 2}, {0.5F, -1.0F}},
               {"S16_LE", {"\x00\x40\x00\x80", 4}, {0.5F, -1.0F}},
               {"S16_BE", {"\x40\x00\x80\x00", 4}, {0.5F, -1.0F}},
               // The upper byte of four says nothing.
               {"S24_LE", {"\x00\x00\x40\x7F\x00\x00\x80\x00", 8}, {0.5F, -1.0F}},
               {"S24_BE", {"\x7F\x40\x00\x00\xFF\x80\x00\x00", 8}, {0.5F, -1.0F}},
               {"S24_3LE", {"\x00\x00\x40\x00\x00\x80", 6}, {0.5F, -1.0F}},
               {"S24_3BE", {"\x40\x00\x00\x80\x00\x00", 6}, {0.5F, -1.0F}},
               {"S32_LE", {"\x00\x00\x00\x40\x00\x00\x00\x80", 8}, {0.5F, -1.0F}},
               {"FLOAT_LE", {"\x00\x00\x00\x3F\x00\x00\x80\xBF", 8}, {0.5F, -1.0F}},
               {"FLOAT64_BE", {"\x3F\xE0\0\0\0\0\0\0\xBF\xF0\0\0\0\0\0\0", 16}, {0.5F, -1.0F}}};
  for (const auto& [encoding, bytes, samples] : cases) {
    SCOPED_TRACE(encoding);
    std::vector<std::string> warnings;
    Audio::AudioReaderOptions options;
    options.raw = Audio::parseRawFormat(encoding + ",2,8000", "--raw");
    options.warn = [&](const std::string& text) { warnings.push_back(text); };
    std::string twice = bytes + bytes;
    Audio::AudioReader file(folder.write("file.raw", twice), options);
    EXPECT_EQ(file.announcedSamples(), 2);
    EXPECT_EQ(file.samplingRate(), 8000);
    const std::vector<float> expected = {samples[0], samples[1], samples[0], samples[1]};
    EXPECT_EQ(readAll(file), expected);
    EXPECT_EQ(fromFifo(twice, options), expected);
    EXPECT_THAT(warnings, testing::IsEmpty());
    twice += '\1';
    EXPECT_EQ(fromFifo(twice, options), expected);
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_THAT(warnings[0], HasSubstr(": ends within a sample, whose 1 bytes are left out"));
  }
  const std::pair<std::string, std::string> bad[] = {
      {"S16_LE,8", "--raw is \"S16_LE,8\", expected ENCODING,CHANNELS,RATE such as S16_LE,8,16000"},
      {"S17_LE,8,16000", "--raw has the encoding \"S17_LE\", expected one of S8 U8 S16_LE S16_BE"},
      {"S16_LE,0,16000", "--raw has \"0\" channels, expected 1 to 1024"},
      {"S16_LE,8,16k", "--raw has the sampling rate \"16k\", expected 1 to 10000000 Hz"}};
  for (const auto& [text, message] : bad) {
    EXPECT_THAT(messageOf<DataError>([text = text] { Audio::parseRawFormat(text, "--raw"); }),
                testing::StartsWith(message));
  }
}

// Nothing is asked for beyond what was asked of the reader: a test that waits for more never ends.
TEST_F(Stream, GivesSamplesAsSoonAsTheyAreThere) {
  const std::vector<float> sound = noise(2 * 512, 12);
  writeSound(folder / "file", 48000, 2, sound, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
  std::string bytes = bytesOf(folder / "file");
  const std::size_t header = bytes.size() - sound.size() * sizeof(float);
  std::memset(bytes.data() + header - 4, 0xFF, 4);
  for (const bool converts : {false, true}) {
    const std::string path = folder / (converts ? "converted" : "plain");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int writer = open(path.c_str(), O_RDWR);
    // Of floating-point numbers libsndfile looks at the first one, too.
    ASSERT_EQ(write(writer, bytes.data(), header + 4), static_cast<ssize_t>(header + 4));
    bool isStopped = false;
    Audio::AudioReaderOptions options;
    options.stopped = [&] { return isStopped; };
    options.samplingRate = converts ? 16000 : 0;
    options.resample = converts;
    Audio::AudioReader reader(path, options);
    std::vector<float> got(2 * 512);
    for (std::size_t n = 0; n < 512 && !converts; n += 128) {
      const std::size_t block = 128 * 2 * sizeof(float);
      const std::size_t written = n == 0 ? 4 : 0;
      ASSERT_GT(write(writer, bytes.data() + header + n * 8 + written, block - written), 0);
      ASSERT_EQ(reader.read(got.data() + 2 * n, 128), 128U);
    }
    if (converts) {
      // 0.13 s, of which the conversion holds back 0.08 s.
      for (int i = 0; i < 12; ++i) {
        ASSERT_GT(write(writer, bytes.data() + header, bytes.size() - header), 0);
      }
      ASSERT_EQ(reader.read(got.data(), 100), 100U);
    } else {
      EXPECT_EQ(got, sound);
    }
    isStopped = true;
    while (reader.read(got.data(), 512) == 512) {  // what the conversion still holds
    }
    close(writer);
  }
}

TEST_F(Stream, RefusesWhatIsNoSound) {
  const std::pair<std::string, std::string> cases[] = {
      {"", ": cannot be read as a stream of sound: "},
      {"no sound at all, but a text", "; expected WAV, W64, AU, AIFF or FLAC, or --raw"},
      {"RIFF\x24\0\0\0WAVEfmt ", ": cannot be read as a stream of sound: "}};
  for (const auto& [bytes, message] : cases) {
    EXPECT_THAT(messageOf<DataError>([&, bytes = bytes] { fromFifo(bytes); }), HasSubstr(message));
  }
}

TEST_F(Stream, ToNobodyEnds) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  Audio::SeparatedStream stream(ends[1], "out", {{4, 2}});
  close(ends[0]);
  const float sample = 0.5F;
  EXPECT_THROW(stream.write({{2, &sample}}, 1), Audio::ConsumerGone);
  close(ends[1]);
  EXPECT_THAT(messageOf<DataError>([&] {
                stream.write({{2, &sample}}, 1);
              }),
              HasSubstr("out: cannot be written: Bad file descriptor"));
}

}  // namespace
