// Layout of frames, transforms, and the way there and back.

#include <cmath>
#include <complex>
#include <cstddef>
#include <numbers>
#include <tuple>
#include <vector>

#include "AudioTesting.h"
#include "gtest/gtest.h"
#include "toolbox/core/AudioError.h"
#include "toolbox/core/FrameLayout.h"
#include "toolbox/core/FrameReader.h"
#include "toolbox/core/OverlapAdder.h"
#include "toolbox/core/RealFft.h"
#include "toolbox/core/Window.h"

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

class RealFftTest : public testing::TestWithParam<int> {};

TEST_P(RealFftTest, FollowsItsDefinitionAndInverts) {
  const int length = GetParam();
  const std::vector<float> x = noise(static_cast<std::size_t>(length), 1);
  const std::vector<double> exact(x.begin(), x.end());
  Audio::RealFft fft(length);
  Spectrum X(static_cast<std::size_t>(length / 2 + 1));
  fft.forward(x.data(), X.data());
  for (int k = 0; k <= length / 2; ++k) {
    const std::complex<double> expected = transformAt(exact, k);
    // Errors of single precision grow with the square root of the length.
    EXPECT_NEAR(std::abs(std::complex<double>(X[static_cast<std::size_t>(k)]) - expected), 0,
                1e-6 * std::sqrt(length))
        << "bin " << k;
  }
  std::vector<float> back(x.size());
  fft.inverse(X.data(), back.data());
  EXPECT_LT(differenceInDb(back, x), -120);
}

INSTANTIATE_TEST_SUITE_P(Lengths, RealFftTest, testing::Values(1, 2, 3, 4, 7, 15, 96, 97, 512));

TEST(FrameLayoutTest, EveryFrameHasItsPlace) {
  const Audio::FrameLayout layout(512, 128);
  EXPECT_EQ(layout.bins(), 257);
  EXPECT_EQ(layout.start(0), -384);
  EXPECT_EQ(layout.start(3), 0);
  EXPECT_EQ(layout.time(0, 16000), 0.0);  // its centre lies before the recording
  EXPECT_DOUBLE_EQ(layout.time(3, 16000), 256.0 / 16000);

  // The last frame begins before the recording's end, the next one would not.
  for (const std::int64_t samples : {1, 127, 128, 129, 512, 100000}) {
    const std::int64_t count = layout.frameCount(samples);
    EXPECT_LT(layout.start(count - 1), samples);
    EXPECT_GE(layout.start(count), samples);
  }
  EXPECT_EQ(layout.frameCount(0), 0);
}

TEST(FrameLayoutTest, RefusesImpossibleSizes) {
  const auto message = [](int length, int advance) {
    return messageOf<Audio::AudioError>([&] { Audio::FrameLayout(length, advance); });
  };
  EXPECT_EQ(message(0, 1), "LENGTH is 0, expected 1 to 16777216 samples");
  EXPECT_EQ(message(512, 0), "ADVANCE is 0, expected 1 to LENGTH = 512 samples");
  EXPECT_EQ(message(512, 513), "ADVANCE is 513, expected 1 to LENGTH = 512 samples");
}

TEST(WindowTest, IsPeriodic) {
  EXPECT_THAT(Audio::makeWindow(Audio::windowNamed("HANN"), 4),
              testing::Pointwise(testing::FloatNear(1e-7F), {0.0F, 0.5F, 1.0F, 0.5F}));
  EXPECT_THAT(Audio::makeWindow(Audio::windowNamed("HAMMING"), 2),
              testing::Pointwise(testing::FloatNear(1e-7F), {0.08F, 1.0F}));
  EXPECT_THAT(Audio::makeWindow(Audio::windowNamed("SINE"), 2),
              testing::Pointwise(testing::FloatNear(1e-7F), {0.0F, 1.0F}));
  EXPECT_THAT(Audio::makeWindow(Audio::windowNamed("RECTANGULAR"), 2),
              testing::ElementsAre(1.0F, 1.0F));
  EXPECT_EQ(messageOf<Audio::AudioError>([] { Audio::windowNamed("hann"); }),
            "WINDOW is \"hann\", expected HANN, HAMMING, SINE or RECTANGULAR");
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
  EXPECT_EQ(frames, layout.frameCount(50));
}

// ---- there and back: unchanged spectra give the recording back, from the first sample to the last

struct Way {
  int length;
  int advance;
  const char* window;
  int samples;
};

void PrintTo(const Way& way, std::ostream* out) {
  *out << way.length << "/" << way.advance << " " << way.window << ", " << way.samples;
}

/// The sound of a mono file's frames, each spectrum's bin k times factor(k).
template <class Factor>
std::vector<float> thereAndBack(const std::string& path, const Audio::FrameLayout& layout,
                                Audio::WindowType window, bool halfFrameShift, Factor factor) {
  Audio::FrameReader reader(Audio::AudioReader(path), layout, window);
  Audio::FrameSynthesizer synthesizer(layout, window, halfFrameShift);
  Audio::OverlapAdder adder(layout);
  std::vector<float> sound;
  bool wasLast = false;
  while (reader.next()) {
    EXPECT_FALSE(wasLast);
    wasLast = reader.isLast();
    Spectrum spectrum = reader.spectra();
    for (std::size_t k = 0; k < spectrum.size(); ++k) spectrum[k] *= factor(k);
    adder.add(synthesizer.synthesize(spectrum.data()).data());
    const auto begin = adder.sum().begin() + std::max<std::int64_t>(0, -reader.start());
    sound.insert(sound.end(), begin, begin + reader.finishedSamples());
  }
  EXPECT_TRUE(wasLast);
  return sound;
}

class ThereAndBackTest : public testing::TestWithParam<Way> {};

TEST_P(ThereAndBackTest, GivesTheRecordingBack) {
  const auto [length, advance, windowName, samples] = GetParam();
  const TestFolder folder;
  const std::vector<float> sound = noise(static_cast<std::size_t>(samples), 3);
  writeSound(folder / "in.wav", 16000, 1, sound);
  const Audio::FrameLayout layout(length, advance);
  const Audio::WindowType window = Audio::windowNamed(windowName);
  const std::vector<float> back =
      thereAndBack(folder / "in.wav", layout, window, false, [](std::size_t) { return 1.0F; });
  EXPECT_LT(differenceInDb(back, sound), -100);
  // The edges, where fewer samples would hide among the many of the whole.
  for (const std::size_t n : {std::size_t{0}, sound.size() - 1}) {
    EXPECT_NEAR(back[n], sound[n], 1e-5 * std::abs(sound[n])) << n;
  }
}

INSTANTIATE_TEST_SUITE_P(Layouts, ThereAndBackTest,
                         testing::Values(Way{512, 128, "HANN", 10000}, Way{512, 256, "HANN", 10240},
                                         Way{512, 160, "HANN", 9999}, Way{512, 1, "HANN", 600},
                                         Way{400, 160, "HAMMING", 5000},
                                         Way{512, 256, "SINE", 3000},
                                         Way{64, 64, "RECTANGULAR", 640},
                                         Way{64, 64, "RECTANGULAR", 641}, Way{63, 31, "HANN", 1000},
                                         Way{97, 20, "SINE", 500}, Way{2, 1, "HANN", 10},
                                         Way{1, 1, "RECTANGULAR", 3}, Way{1024, 256, "HANN", 1},
                                         Way{1024, 256, "HANN", 256}, Way{1024, 256, "HANN", 257}));

TEST(FrameSynthesizerTest, UndoesAShiftByHalfAFrame) {
  const TestFolder folder;
  const std::vector<float> sound = noise(4000, 4);
  writeSound(folder / "in.wav", 16000, 1, sound);
  const auto turned = [](std::size_t k) { return k % 2 == 0 ? 1.0F : -1.0F; };
  for (const int length : {256, 255}) {
    const Audio::FrameLayout layout(length, 64);
    EXPECT_LT(
        differenceInDb(
            thereAndBack(folder / "in.wav", layout, Audio::WindowType::Hann, true, turned), sound),
        -100);
    EXPECT_GT(
        differenceInDb(
            thereAndBack(folder / "in.wav", layout, Audio::WindowType::Hann, false, turned), sound),
        -3);
  }
}

TEST(FrameSynthesizerTest, RefusesFramesThatOverlapTooLittle) {
  const auto construct = [](int length, int advance, const char* window) {
    Audio::FrameSynthesizer(Audio::FrameLayout(length, advance), Audio::windowNamed(window), false);
  };
  EXPECT_EQ(messageOf<Audio::AudioError>([&] { construct(512, 512, "HANN"); }),
            "frames of LENGTH 512 with ADVANCE 512 do not overlap enough for this WINDOW: some "
            "samples would be lost; expected an ADVANCE of at most half of LENGTH");
  EXPECT_THROW(construct(512, 511, "HANN"), Audio::AudioError);
  EXPECT_THROW(construct(1, 1, "HANN"), Audio::AudioError);
  EXPECT_NO_THROW(construct(512, 512, "HAMMING"));
}

}  // namespace
