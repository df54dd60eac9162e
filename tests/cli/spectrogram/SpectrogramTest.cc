#include "cli/spectrogram/Spectrogram.h"

#include <cmath>

#include "cli/spectrogram/LevelColumns.h"
#include "gmock/gmock.h"
#include "tests/cli/spectrogram/SineSound.h"
#include "tests/toolbox/AudioTesting.h"

namespace {

/// The column whose time holds t.
std::size_t columnAt(const Spectrogram& s, double t) {
  return static_cast<std::size_t>((t - s.begin) / s.columnSeconds);
}

class Frames : public testing::TestWithParam<SpectrogramFrames> {};

TEST_P(Frames, ShowASineAtItsTimeFrequencyAndLevel) {
  const auto [length, advance] = GetParam();
  const TestFolder folder;
  const std::string path = folder / "sine.wav";
  const SineSound sine;
  writeSound(path, sine.samplingRate, 1, sine.samples());
  const Spectrogram s = readSpectrograms(path, "", {length, advance}).front();
  EXPECT_DOUBLE_EQ(s.duration, 3.0);
  EXPECT_LE(s.begin, 0.5 * s.columnSeconds);
  EXPECT_GE(s.begin + s.columnSeconds * static_cast<double>(s.columns()), 3.0);

  // 2000 Hz is the middle of a bin at these lengths; the level is that of an amplitude of 0.5.
  const auto bin = static_cast<std::size_t>(2000.0 / sine.samplingRate * length);
  const std::size_t middle = columnAt(s, 1.5);
  EXPECT_NEAR(s.level(middle, bin), 20.0 * std::log10(0.5), 0.01);
  // Hann's neighbours are 6 dB below, the rest is leakage of rounding.
  EXPECT_NEAR(s.level(middle, bin + 1), 20.0 * std::log10(0.25), 0.05);
  EXPECT_LT(s.level(middle, bin + 4), -90.0F);
  // A frame at the sine's begin or end holds the part of it that the window's begin has there.
  const double frame = static_cast<double>(length) / sine.samplingRate;
  for (const double edge : {1.0, 2.0}) {
    const std::size_t column = columnAt(s, edge);
    const double middleTime = s.begin + s.columnSeconds * (static_cast<double>(column) + 0.5);
    const double ahead = 0.5 + (edge == 1.0 ? middleTime - edge : edge - middleTime) / frame;
    const double part = ahead - std::sin(2.0 * std::numbers::pi * ahead) / (2.0 * std::numbers::pi);
    EXPECT_NEAR(s.level(column, bin), 20.0 * std::log10(0.5 * part), 0.2) << edge;
  }
  EXPECT_EQ(s.level(columnAt(s, 1.0 - frame), bin), -INFINITY);
  EXPECT_EQ(s.level(columnAt(s, 2.0 + frame), bin), -INFINITY);
}

INSTANTIATE_TEST_SUITE_P(, Frames,
                         testing::Values(SpectrogramFrames{512, 50}, SpectrogramFrames{64, 32},
                                         SpectrogramFrames{1024, 512}));

TEST(Spectrogram, TakesTheChannelsAskedFor) {
  const TestFolder folder;
  const std::string path = folder / "three.wav";
  const std::string mono = folder / "mono.wav";
  std::vector<float> samples;
  for (int n = 0; n < 4000; ++n) {
    for (const float level : {0.5F, 0.0F, 0.25F}) samples.push_back(n % 8 < 4 ? level : -level);
  }
  writeSound(path, 8000, 3, samples);
  writeSound(mono, 8000, 1, noise(100, 1));
  const std::vector<Spectrogram> two = readSpectrograms(path, "3,1", {256, 64});
  ASSERT_EQ(two.size(), 2U);
  EXPECT_EQ(two[0].name, path + ", channel 3");
  EXPECT_EQ(two[1].name, path + ", channel 1");
  EXPECT_NEAR(two[1].level(30, 32) - two[0].level(30, 32), 20.0 * std::log10(2.0), 1e-3);
  // A file with one channel gives that one; one shorter than a frame gives a column at least.
  const std::vector<Spectrogram> one = readSpectrograms(mono, "3,1", {256, 64});
  ASSERT_EQ(one.size(), 1U);
  EXPECT_GE(one[0].columns(), 1U);
}

// Each column is the mean power of its own frames, however often columns were joined, and their
// number stays bounded.
TEST(LevelColumns, KeepTheMeanPower) {
  for (const std::size_t frames : {1U, 2048U, 2049U, 5003U, 20000U}) {
    LevelColumns columns(2);
    const auto power = [](std::size_t i) { return 1.0 + static_cast<double>(i * 7 % 1001); };
    for (std::size_t i = 0; i < frames; ++i) {
      const std::complex<float> spectrum[] = {static_cast<float>(std::sqrt(power(i))), 2.0F};
      columns.add(spectrum);
    }
    const std::vector<float> levels = columns.levels(4.0);
    const std::size_t per = columns.framesPerColumn();
    ASSERT_EQ(levels.size(), 2 * ((frames + per - 1) / per));
    EXPECT_LE(levels.size() / 2, 2 * LevelColumns::FEWEST);
    EXPECT_TRUE(per == 1 || levels.size() / 2 >= LevelColumns::FEWEST) << per;
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

}  // namespace
