#include "pictures/Spectrogram.h"

#include <cmath>
#include <numbers>

#include "gmock/gmock.h"
#include "pictures/LevelColumns.h"
#include "tests/cli/CommandTest.h"
#include "tests/pictures/PictureTesting.h"

namespace {

using std::numbers::pi;

constexpr int RATE = 16000;

/// Writes a sine of 2000 Hz and half of full scale in the middle second of three, else silence.
void writeSine(const std::string& path) {
  std::vector<float> samples(3 * RATE);
  for (std::size_t n = RATE; n < 2 * RATE; ++n) {
    samples[n] =
        static_cast<float>(0.5 * std::sin(2.0 * pi * 2000.0 * static_cast<double>(n) / RATE));
  }
  writeSound(path, RATE, 1, samples);
}

/// The column whose time holds t.
std::size_t columnAt(const Spectrogram& s, double t) {
  return static_cast<std::size_t>((t - s.begin) / s.columnSeconds);
}

TEST(Spectrogram, ShowsASineAtItsTimeFrequencyAndLevel) {
  const TestFolder folder;
  writeSine(folder / "sine.wav");
  for (const auto& [length, advance] : {SpectrogramFrames{512, 50}, {64, 32}, {1024, 512}}) {
    SCOPED_TRACE(length);
    const Spectrogram s = readSpectrograms(folder / "sine.wav", "", {length, advance}).front();
    EXPECT_DOUBLE_EQ(s.duration, 3.0);
    EXPECT_LE(s.begin, 0.5 * s.columnSeconds);
    EXPECT_GE(s.begin + s.columnSeconds * static_cast<double>(s.columns()), 3.0);

    // 2000 Hz is the middle of a bin at these lengths; the level is that of an amplitude of 0.5.
    const auto bin = static_cast<std::size_t>(2000.0 / RATE * length);
    const std::size_t middle = columnAt(s, 1.5);
    EXPECT_NEAR(s.level(middle, bin), 20.0 * std::log10(0.5), 0.01);
    // Hann's neighbours are 6 dB below, the rest is leakage of rounding.
    EXPECT_NEAR(s.level(middle, bin + 1), 20.0 * std::log10(0.25), 0.05);
    EXPECT_LT(s.level(middle, bin + 4), -90.0F);
    // A frame at the sine's begin or end holds the part of it that the window's begin has there.
    const double frame = static_cast<double>(length) / RATE;
    for (const double edge : {1.0, 2.0}) {
      const std::size_t column = columnAt(s, edge);
      const double middleTime = s.begin + s.columnSeconds * (static_cast<double>(column) + 0.5);
      const double ahead = 0.5 + (edge == 1.0 ? middleTime - edge : edge - middleTime) / frame;
      const double part = ahead - std::sin(2.0 * pi * ahead) / (2.0 * pi);
      EXPECT_NEAR(s.level(column, bin), 20.0 * std::log10(0.5 * part), 0.2) << edge;
    }
    EXPECT_EQ(s.level(columnAt(s, 1.0 - frame), bin), -INFINITY);
    EXPECT_EQ(s.level(columnAt(s, 2.0 + frame), bin), -INFINITY);
  }
}

// A file with one channel gives that one; one shorter than a frame gives a column at least.
TEST(Spectrogram, TakesTheChannelsAskedFor) {
  const TestFolder folder;
  std::vector<float> samples;
  for (int n = 0; n < 4000; ++n) {
    for (const float level : {0.5F, 0.0F, 0.25F}) samples.push_back(n % 8 < 4 ? level : -level);
  }
  writeSound(folder / "three.wav", 8000, 3, samples);
  writeSound(folder / "mono.wav", 8000, 1, noise(100, 1));
  const auto two = readSpectrograms(folder / "three.wav", "3,1", {256, 64});
  ASSERT_EQ(two.size(), 2U);
  EXPECT_EQ(two[0].name, folder / "three.wav, channel 3");
  EXPECT_NEAR(two[1].level(30, 32) - two[0].level(30, 32), 20.0 * std::log10(2.0), 1e-3);
  EXPECT_GE(readSpectrograms(folder / "mono.wav", "3,1", {256, 64}).at(0).columns(), 1U);
}

// Each column is the mean power of its own frames, however often columns were joined, and their
// number stays bounded.
TEST(LevelColumns, KeepTheMeanPower) {
  for (const std::size_t frames : {1U, 2048U, 2049U, 20000U}) {
    LevelColumns columns(2);
    const auto power = [](std::size_t i) { return 1.0 + static_cast<double>(i * 7 % 1001); };
    for (std::size_t i = 0; i < frames; ++i) {
      const std::complex<float> spectrum[] = {static_cast<float>(std::sqrt(power(i))), 2.0F};
      columns.add(spectrum);
    }
    const std::vector<float> levels = columns.levels(4.0);
    const std::size_t per = columns.framesPerColumn();
    ASSERT_EQ(levels.size(), 2 * ((frames + per - 1) / per));
    EXPECT_LE(levels.size() / 2, 2 * LevelColumns::MIN_COLUMNS);
    EXPECT_TRUE(per == 1 || levels.size() / 2 >= LevelColumns::MIN_COLUMNS) << per;
    for (std::size_t c = 0; c < levels.size() / 2; ++c) {
      double sum = 0.0;
      const std::size_t end = std::min(frames, (c + 1) * per);
      for (std::size_t i = c * per; i < end; ++i) sum += power(i);
      const double mean = sum / static_cast<double>(end - c * per);
      ASSERT_NEAR(levels[2 * c], 10.0 * std::log10(mean / 4.0), 1e-4) << frames << " " << c;
      ASSERT_NEAR(levels[2 * c + 1], 0.0F, 1e-4) << frames << " " << c;
    }
  }
}

class SpectrogramCommand : public CommandTest {
 protected:
  SpectrogramCommand() {
    writeSine(folder / "sine.wav");
    writeSound(folder / "<s>&more.wav", 8000, 2, noise(8000, 3));
  }
};

TEST_F(SpectrogramCommand, SvgNamesFilesAndUnits) {
  const CommandRun result = run("spectrogram sine.wav <s>&more.wav -o s.svg");
  ASSERT_EQ(result.status, 0);
  EXPECT_EQ(result.output + result.errors, "");
  EXPECT_THAT(textsOf(content("s.svg")),
              testing::IsSupersetOf<std::string>(
                  {"sine.wav", "<s>&more.wav, channel 1", "<s>&more.wav, channel 2", "kHz", "8",
                   "time (s)", "3", "level (dB, 0 = sine of full scale)", "-20", "-70"}));
}

// Three seconds and 8 kHz on the default panel: time runs from x = 62 to 804, frequency from y =
// 168 up to 28.
TEST_F(SpectrogramCommand, PngShowsTheSineAtItsPlace) {
  ASSERT_EQ(run("spectrogram sine.wav -o s.png").status, 0);
  const Image image = imageOf(folder / "s.png");
  ASSERT_EQ(image.width, 900);
  ASSERT_EQ(image.height, 214);
  const auto at = [&](double seconds, double hertz) {
    return luminance(image.at(static_cast<int>(62 + 742 * seconds / 3.0),
                              static_cast<int>(168 - 140 * hertz / 8000.0)));
  };
  // Two bins share a row of points: the darkest colour is mixed with its neighbour's.
  for (const double seconds : {1.05, 1.5, 1.95}) EXPECT_LT(at(seconds, 2000), 0.15) << seconds;
  for (const auto& [seconds, hertz] :
       {std::pair{0.9, 2000}, {2.1, 2000}, {1.5, 2500}, {1.5, 1500}, {1.5, 6000}, {0.1, 6000}}) {
    EXPECT_GT(at(seconds, hertz), 0.8) << seconds << " s, " << hertz << " Hz";
  }
}

TEST_F(SpectrogramCommand, DrawsSilenceInTheSizeAskedFor) {
  writeSound(folder / "silent.wav", RATE, 1, std::vector<float>(5));
  ASSERT_EQ(run("spectrogram silent.wav --width 500 --height 321 -o s.png").status, 0);
  EXPECT_EQ(imageOf(folder / "s.png").width, 500);
  EXPECT_EQ(imageOf(folder / "s.png").height, 321);
}

TEST_F(SpectrogramCommand, SaysWhatIsWrong) {
  folder.write("text.wav", "no audio");
  writeSound(folder / "empty.wav", RATE, 1, {});
  writeSound(folder / "wide.wav", RATE, 40, noise(4000, 2));
  const std::string sine = "spectrogram sine.wav ";
  const std::string stereo = "spectrogram <s>&more.wav -o s.png ";
  expectRefused(2, {{"spectrogram -o s.png", "FILE is required"},
                    {sine + "-o s", "--output: \"s\", expected a name that ends in .svg or .png"},
                    {sine + "-o s.png --length 64 --advance 65",
                     "--advance: 65, expected --length, 64, at most"}});
  expectRefused(
      1, {{"spectrogram absent.wav -o s.png", "absent.wav: cannot be read…"},
          {"spectrogram text.wav -o s.png", "text.wav: cannot be read…"},
          {sine + "empty.wav -o s.png", "empty.wav: holds no samples, expected one at least"},
          {stereo + "--channel 3",
           "<s>&more.wav: --channel is \"3\": \"3\" does not fit a file whose channels are 1 to 2"},
          {"spectrogram wide.wav -o s.png",
           "wide.wav: with it there are 40 panels, expected 32 at most (--channel chooses "
           "channels)"},
          {sine + "-o s.png --width 300", "--width is 300, expected 360 pixels or more"},
          {stereo + "--height 150", "--height is 150, expected 182 pixels or more for 2 panels"},
          {sine + "-o none/s.png",
           "none/s.png: cannot be written: there is no folder none, expected one that exists"}});
}

}  // namespace
