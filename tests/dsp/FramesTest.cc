// Layout of frames, transforms, and the way there and back.

#include <cmath>
#include <complex>
#include <cstddef>
#include <numbers>
#include <string>
#include <vector>

#include "audio/FrameReader.h"
#include "dsp/DataError.h"
#include "dsp/FrameLayout.h"
#include "dsp/OverlapAdder.h"
#include "dsp/RealFft.h"
#include "dsp/Window.h"
#include "gtest/gtest.h"
#include "tests/support/AudioTesting.h"

namespace {

using Spectrum = std::vector<std::complex<float>>;

/// The definition, in double precision.
std::complex<double> transformAt(const std::vector<double>& x, int k) {
  std::complex<double> sum;
  for (std::size_t n = 0; n < x.size(); ++n) {
    sum += x[n] * std::polar(1.0, -2 * std::numbers::pi * k * static_cast<double>(n) /
                                      static_cast<double>(x.size()));
  }
  return sum;
}

TEST(RealFftTest, FollowsItsDefinitionAndInverts) {
  for (const int length : {1, 2, 3, 4, 7, 15, 96, 97, 512}) {
    SCOPED_TRACE(length);
    const std::vector<float> x = noise(static_cast<std::size_t>(length), 1);
    const std::vector<double> exact(x.begin(), x.end());
    Audio::RealFft fft(length);
    Spectrum X(static_cast<std::size_t>(length / 2 + 1));
    fft.forward(x.data(), X.data());
    // Errors of single precision grow with the square root of the length.
    for (int k = 0; k <= length / 2; ++k) {
      EXPECT_NEAR(std::abs(std::complex<double>(X[k]) - transformAt(exact, k)), 0,
                  1e-6 * std::sqrt(length))
          << "bin " << k;
    }
    std::vector<float> back(x.size());
    fft.inverse(X.data(), back.data());
    EXPECT_LT(differenceInDb(back, x), -120);
  }
}

TEST(WindowTest, IsPeriodic) {
  const std::pair<const char*, std::vector<float>> windows[] = {
      {"HANN", {0.0F, 0.5F, 1.0F, 0.5F}},
      {"HAMMING", {0.08F, 0.54F, 1.0F, 0.54F}},
      {"SINE", {0.0F, std::sqrt(0.5F), 1.0F, std::sqrt(0.5F)}},
      {"RECTANGULAR", {1.0F, 1.0F, 1.0F, 1.0F}}};
  for (const auto& [name, values] : windows) {
    EXPECT_THAT(Audio::makeWindow(Audio::windowNamed(name), 4),
                testing::Pointwise(testing::FloatNear(1e-7F), values))
        << name;
  }
}

TEST(FrameSynthesizerTest, RefusesLayoutsThatLoseSamples) {
  const auto message = [](int length, int advance) {
    return messageOf<DataError>([&] {
      const Audio::FrameLayout layout(length, advance);
      Audio::FrameSynthesizer(layout, Audio::WindowType::Hann, false);
    });
  };
  EXPECT_EQ(message(512, 0), "ADVANCE is 0, expected 1 to LENGTH = 512 samples");
  for (const int advance : {511, 512}) {
    EXPECT_EQ(message(512, advance),
              "frames of LENGTH 512 with ADVANCE " + std::to_string(advance) +
                  " do not overlap enough for this WINDOW: some samples would be lost; expected an "
                  "ADVANCE of at most half of LENGTH");
  }
}

TEST(FrameReaderTest, GivesTheTransformOfTheWindowedFrame) {
  const TestFolder folder;
  const std::vector<float> sound = noise(3 * 50, 2);  // three channels
  writeSound(folder / "in.wav", 8000, 3, sound);
  const int length = 16;
  const int advance = 5;
  const Audio::FrameLayout layout(length, advance);
  Audio::FrameReader reader(Audio::AudioReader(folder / "in.wav"), layout, Audio::WindowType::Hann);
  int frames = 0;
  for (; reader.next(); ++frames) {
    ASSERT_EQ(reader.frame(), frames);
    EXPECT_EQ(reader.isWhole(), reader.start() >= 0 && reader.start() + length <= 50);
    for (int c = 0; c < 3; ++c) {
      std::vector<double> x(length);
      for (int n = 0; n < length; ++n) {
        const std::int64_t at = frames * advance - (length - advance) + n;
        const double w = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * n / length);
        if (at >= 0 && at < 50) x[static_cast<std::size_t>(n)] = w * sound[3 * at + c];
      }
      for (int k = 0; k < layout.bins(); ++k) {
        const std::complex<double> actual(reader.spectra()[c * layout.bins() + k]);
        ASSERT_NEAR(std::abs(actual - transformAt(x, k)), 0, 1e-6)
            << frames << " " << c << " " << k;
      }
    }
  }
  EXPECT_EQ(frames, 12 + 1);  // frame 12 begins at sample 49, the last one
  EXPECT_EQ(frames, layout.frameCount(50));
}

// ---- there and back: unchanged spectra give the recording back, from the first sample to the last

struct Way {
  int length;
  int advance;
  const char* window;
  int samples;
  bool halfFrameShift = false;
  int span = 0;  // samples of the short synthesis window; 0: `window` before and after
};

void PrintTo(const Way& way, std::ostream* out) {
  *out << way.length << "/" << way.advance << " " << way.window << ", " << way.samples << ", "
       << way.span;
}

class ThereAndBackTest : public testing::TestWithParam<Way> {};

// A shift by half a frame turns the sign of every second bin, which the synthesis has to undo.
TEST_P(ThereAndBackTest, GivesTheRecordingBack) {
  const auto [length, advance, windowName, samples, halfFrameShift, span] = GetParam();
  const TestFolder folder;
  const std::vector<float> sound = noise(static_cast<std::size_t>(samples), 3);
  writeSound(folder / "in.wav", 16000, 1, sound);
  const Audio::FrameLayout layout(length, advance);
  const Audio::FrameWindows windows =
      span > 0 ? Audio::lowDelayWindows(length, span)
               : Audio::equalWindows(Audio::windowNamed(windowName), length);
  Audio::FrameReader reader(Audio::AudioReader(folder / "in.wav"), layout, windows.analysis);
  Audio::FrameSynthesizer synthesizer(layout, windows, halfFrameShift);
  const Audio::FrameLayout output = synthesizer.frames();
  EXPECT_EQ(output.length(), span > 0 ? span : length);
  Audio::OverlapAdder adder(output);
  std::vector<float> back;
  bool wasLast = false;
  while (reader.next()) {
    EXPECT_FALSE(wasLast);
    wasLast = reader.isLast();
    Spectrum spectrum = reader.spectra();
    for (std::size_t k = 1; halfFrameShift && k < spectrum.size(); k += 2) spectrum[k] *= -1.0F;
    adder.add(synthesizer.synthesize(spectrum.data()).data());
    const std::int64_t start = output.start(reader.frame());
    for (std::int64_t n = std::max<std::int64_t>(0, start);
         n < std::min<std::int64_t>(start + advance, samples); ++n) {
      back.push_back(adder.sum()[static_cast<std::size_t>(n - start)]);
    }
  }
  EXPECT_TRUE(wasLast);
  EXPECT_LT(differenceInDb(back, sound), -100);
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, ThereAndBackTest,
    testing::Values(Way{512, 128, "HANN", 10000}, Way{512, 256, "HANN", 10240},
                    Way{512, 160, "HANN", 9999}, Way{512, 1, "HANN", 600},
                    Way{400, 160, "HAMMING", 5000}, Way{512, 512, "HAMMING", 3000},
                    Way{512, 256, "SINE", 3000}, Way{64, 64, "RECTANGULAR", 641},
                    Way{97, 20, "SINE", 500}, Way{2, 1, "HANN", 10}, Way{1, 1, "RECTANGULAR", 3},
                    Way{1024, 256, "HANN", 1}, Way{1024, 256, "HANN", 257},
                    Way{256, 64, "HANN", 4000, true}, Way{255, 64, "HANN", 4000, true},
                    Way{512, 64, "", 4000, false, 128}, Way{512, 32, "", 4001, true, 128},
                    Way{512, 50, "", 3000, false, 128}, Way{512, 256, "", 3000, false, 512},
                    Way{511, 40, "", 3000, true, 97}, Way{64, 1, "", 300, false, 2},
                    Way{2, 1, "", 10, false, 2}, Way{512, 64, "", 1, false, 128}));

}  // namespace
