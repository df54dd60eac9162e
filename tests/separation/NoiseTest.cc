// Noise statistics and projection back.

#include <cmath>
#include <complex>
#include <cstddef>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "dsp/DataError.h"
#include "gtest/gtest.h"
#include "separation/BackProjection.h"
#include "separation/NoiseCorrelation.h"
#include "separation/NoiseFile.h"
#include "tests/support/AudioTesting.h"

using testing::HasSubstr;

namespace {

using Spectrum = std::vector<std::complex<float>>;

/// Reproducible complex noise.
Spectrum spectrumOf(std::size_t count, unsigned seed) {
  std::mt19937 generator(seed);
  std::normal_distribution<float> distribution;
  Spectrum values(count);
  for (auto& value : values) value = {distribution(generator), distribution(generator)};
  return values;
}

Spectrum matricesOf(const Audio::NoiseCorrelation& noise, double loading, bool normalize) {
  Spectrum matrices(
      static_cast<std::size_t>(noise.bins() * noise.microphones() * noise.microphones()));
  noise.write(loading, normalize, matrices.data());
  return matrices;
}

constexpr int M = 3;
constexpr int K = 4;

/// Plain mean of x_i · conj(x_j) over the frames.
std::complex<double> meanOf(const std::vector<Spectrum>& frames, int k, int i, int j) {
  std::complex<double> sum;
  for (const Spectrum& x : frames) {
    sum += std::complex<double>(x[i * K + k]) * std::conj(std::complex<double>(x[j * K + k]));
  }
  return sum / static_cast<double>(frames.size());
}

TEST(NoiseCorrelationTest, IsTheMeanWithDiagonalLoading) {
  std::vector<Spectrum> frames;
  Audio::NoiseCorrelation noise(M, K, 1.0);
  for (unsigned f = 0; f < 50; ++f) {
    frames.push_back(spectrumOf(M * K, f));
    noise.add(frames.back().data());
  }
  EXPECT_EQ(noise.frames(), 50);
  const double loading = 0.1;
  const Spectrum plain = matricesOf(noise, loading, false);
  const Spectrum normalized = matricesOf(noise, loading, true);
  for (int k = 0; k < K; ++k) {
    double sigma = 0;
    for (int i = 0; i < M; ++i) sigma += meanOf(frames, k, i, i).real() / M;
    for (int i = 0; i < M; ++i) {
      for (int j = 0; j < M; ++j) {
        const std::complex<double> R = meanOf(frames, k, i, j);
        const std::complex<double> expected = R + (i == j ? loading * sigma : 0.0);
        const std::size_t at = static_cast<std::size_t>(k * M * M + i * M + j);
        EXPECT_NEAR(std::abs(std::complex<double>(plain[at]) - expected), 0, 1e-6);
        EXPECT_NEAR(std::abs(std::complex<double>(normalized[at]) - expected / sigma), 0, 1e-6);
      }
    }
  }
}

// w = max(1/n, 1 - forgetting): mean of the first 10 frames, then weight 0.1 for each new one.
TEST(NoiseCorrelationTest, ForgetsOldFrames) {
  Audio::NoiseCorrelation noise(1, 1, 0.9);
  double expected = 0;
  for (int n = 1; n <= 40; ++n) {
    const std::complex<float> x(static_cast<float>(n), 0);
    noise.add(&x);
    const double w = n <= 10 ? 1.0 / n : 0.1;
    expected = (1 - w) * expected + w * n * n;
    EXPECT_NEAR(matricesOf(noise, 0, false)[0].real(), expected, 1e-5 * expected) << n;
  }
}

TEST(NoiseCorrelationTest, SilenceIsZeroOrTheIdentityAndBrokenFramesAreLeftOut) {
  Audio::NoiseCorrelation noise(2, 1, 1.0);
  noise.add(Spectrum(2).data());
  noise.add(Spectrum{1.0F, std::numeric_limits<float>::quiet_NaN()}.data());
  EXPECT_EQ(noise.frames(), 1);
  EXPECT_EQ(matricesOf(noise, 0.5, false), Spectrum(4));
  EXPECT_EQ(matricesOf(noise, 0.5, true), (Spectrum{1.5F, 0, 0, 1.5F}));
}

TEST(NoiseCorrelationTest, RefusesForgettingFactorsOutsideItsRange) {
  for (const double factor : {-0.1, 1.1, std::nan("")}) {
    EXPECT_THROW(Audio::NoiseCorrelation(1, 1, factor), DataError);
    EXPECT_THROW(Audio::BackProjection(1, factor), DataError);
  }
}

// ---- noise from a file

const Audio::FrameLayout LAYOUT(64, 16);

Audio::FrameReader readerOf(const std::string& path) {
  return {Audio::AudioReader(path), LAYOUT, Audio::WindowType::Hann};
}

/// Loud from 0.5 s to 1 s, quiet elsewhere: 2 s at 1000 Hz, two channels.
std::string loudMiddle(const TestFolder& folder) {
  std::vector<float> sound = noise(2 * 2000, 20, 0.01F);
  const std::vector<float> loud = noise(2 * 500, 21, 0.9F);
  std::copy(loud.begin(), loud.end(), sound.begin() + 2 * 500);
  writeSound(folder / "in.wav", 1000, 2, sound);
  return folder / "in.wav";
}

TEST(NoiseFileTest, UsesTheWholeFramesInsideTheRangesAlone) {
  const TestFolder folder;
  const std::string path = loudMiddle(folder);
  for (const char* ranges : {"0-0.5,1-1.2", ""}) {
    Audio::FrameReader direct = readerOf(path);
    Audio::NoiseCorrelation expected(2, LAYOUT.bins(), 1.0);
    while (direct.next()) {
      const std::int64_t begin = direct.start();
      const std::int64_t end = begin + LAYOUT.length();
      const bool isInside = (begin >= 0 && end <= 500) || (begin >= 1000 && end <= 1200);
      const bool isWhole = begin >= 0 && end <= 2000;
      if (*ranges ? isInside : isWhole) expected.add(direct.spectra().data());
    }
    Audio::FrameReader reader = readerOf(path);
    const Audio::NoiseCorrelation noise = Audio::noiseOfFile(
        reader, *ranges ? Audio::parseTimeRanges(ranges) : std::vector<Audio::TimeRange>());
    EXPECT_EQ(noise.frames(), expected.frames()) << ranges;
    EXPECT_EQ(matricesOf(noise, 0, false), matricesOf(expected, 0, false)) << ranges;
  }
}

TEST(NoiseFileTest, SaysWhenThereIsNoFrame) {
  const TestFolder folder;
  const std::string path = loudMiddle(folder);
  Audio::FrameReader reader = readerOf(path);
  EXPECT_EQ(messageOf<DataError>(
                [&] { Audio::noiseOfFile(reader, Audio::parseTimeRanges("0-0.05,5-6")); }),
            path + ": no whole frame of 64 samples (0.0640 s) lies in one of the time ranges");
  writeSound(folder / "short.wav", 1000, 1, noise(63, 22));
  Audio::FrameReader shortReader = readerOf(folder / "short.wav");
  EXPECT_THAT(messageOf<DataError>([&] { Audio::noiseOfFile(shortReader, {}); }),
              HasSubstr("no whole frame of 64 samples (0.0640 s) lies in the file"));
}

// ---- projection back

// The gain minimises the weighted squared error: no neighbour does better.
TEST(BackProjectionTest, IsTheLeastSquaresGain) {
  const double alpha = 0.8;
  const int bins = 2;
  Audio::BackProjection projection(bins, alpha);
  std::vector<std::complex<double>> X;  // of the last bin
  std::vector<std::complex<double>> Y;
  std::complex<double> gain;
  for (unsigned f = 0; f < 12; ++f) {
    const Spectrum values = spectrumOf(2 * bins, 40 + f);
    Spectrum projected(bins);
    projection.project(0, values.data(), &values[bins], true, projected.data());
    X.emplace_back(values[bins - 1]);
    Y.emplace_back(values[2 * bins - 1]);
    gain = std::complex<double>(projected[bins - 1]) / Y.back();
  }
  const auto cost = [&](std::complex<double> g) {
    double sum = 0;
    for (std::size_t i = 0; i < X.size(); ++i) {
      sum += std::pow(alpha, static_cast<double>(X.size() - 1 - i)) * std::norm(X[i] - g * Y[i]);
    }
    return sum;
  };
  for (const std::complex<double> step : {1.0, -1.0}) {
    EXPECT_GT(cost(gain + 0.01 * step), cost(gain));
    EXPECT_GT(cost(gain + std::complex<double>(0, 0.01) * step), cost(gain));
  }
}

TEST(BackProjectionTest, KeepsEachSourcesAveragesApartAndFrozenWhenTold) {
  Audio::BackProjection projection(1, 0.5);
  const Spectrum X{6.0F};
  const Spectrum Y{2.0F};
  Spectrum out(1);
  projection.project(1, X.data(), Y.data(), false, out.data());
  EXPECT_EQ(out[0], 0.0F);  // nothing learnt yet
  projection.project(1, X.data(), Y.data(), true, out.data());
  EXPECT_EQ(out[0], 6.0F);
  projection.project(2, Spectrum{-4.0F}.data(), Y.data(), true, out.data());
  EXPECT_EQ(out[0], -4.0F);
  projection.project(1, Spectrum{100.0F}.data(), Spectrum{1.0F}.data(), false, out.data());
  EXPECT_EQ(out[0], 3.0F);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  projection.project(1, Spectrum{nan}.data(), Y.data(), true, out.data());
  EXPECT_EQ(out[0], 6.0F);
}

}  // namespace
