#include "responses/MixRenderer.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include "dsp/DataError.h"
#include "fileio/SofaWriter.h"
#include "gmock/gmock.h"
#include "responses/ResponseSet.h"
#include "tests/cli/FirFile.h"
#include "tests/support/AudioTesting.h"

namespace {

using std::numbers::pi;
using Samples = std::vector<float>;

constexpr int RATE = 16000;

/// A tone that fades in and out within 400 samples: known between the samples, too.
double tone(double t) {
  return t < 0 || t > 400 ? 0.0 : std::sin(0.7 * t) * std::pow(std::sin(pi * t / 400), 2);
}

class MixRendering : public testing::Test {
 protected:
  ResponseSet load(const FirFile& fir) const {
    fir.write(folder / "responses.sofa");
    return ResponseSet(folder / "responses.sofa");
  }

  /// The image of a source, a channel for each microphone.
  static std::vector<Samples> rendered(const ResponseSet& set, const std::string& source,
                                       const Samples& dry) {
    const auto scene = Audio::Scene::parse(R"({"sources": [{"id": 0, )" + source + "}]}", "scene");
    const SourceImage image = MixRenderer(set).render(scene.sources().front(), dry);
    std::vector<Samples> channels(image.microphones);
    for (std::size_t i = 0; i < image.samples.size(); ++i) {
      channels[i % image.microphones].push_back(image.samples[i]);
    }
    return channels;
  }

  TestFolder folder;
};

TEST_F(MixRendering, DelaysShiftTheResponses) {
  FirFile fir{.sources = {{1, 0, 0}},
              .receivers = {{0, 0, 0}, {0.1, 0, 0}, {0.2, 0, 0}},
              .responses = {1, -0.5, 2},
              .delays = {0, 40, 100.25}};
  Samples dry(400);
  for (std::size_t n = 0; n < dry.size(); ++n) dry[n] = static_cast<float>(tone(n));
  const auto image = rendered(load(fir), R"("azimuth": 0)", dry);
  for (const std::size_t r : {0U, 1U, 2U}) {
    Samples expected;
    for (std::size_t n = 0; n < image[r].size(); ++n) {
      expected.push_back(
          static_cast<float>(fir.responses[r] * tone(static_cast<double>(n) - fir.delays[r])));
    }
    EXPECT_LT(differenceInDb(image[r], expected), r == 2 ? -60 : -140) << r;
  }
  fir.delays = {0, -1, 0};
  EXPECT_EQ(messageOf<DataError>([&] { load(fir); }),
            folder / "responses.sofa: Data.Delay holds -1, expected 0 to 160000 samples (10 s)");
}

// The dry signal begins with the first range and runs on while it is muted.
TEST_F(MixRendering, ActiveRangesGateWithRamps) {
  const ResponseSet set =
      load({.sources = {{0, 1, 0}}, .receivers = {{0, 0, 0}}, .responses = {1}, .delays = {0}});
  Samples dry(10000);
  for (std::size_t n = 0; n < dry.size(); ++n) dry[n] = 1.0F + static_cast<float>(n) / 10000;
  const Samples y =
      rendered(set, R"("azimuth": 90, "active": [[0.1, 0.2], [0.2, 0.25], [0.4, 0.5]])", dry)[0];
  // 10 000 dry samples from 0.1 s on reach to 0.725 s; the last range ends before.
  ASSERT_EQ(y.size(), 8000U);
  for (std::size_t n = 0; n < y.size(); ++n) {
    const auto gate = [t = static_cast<double>(n) / RATE](double begin, double end) {
      const double edge = std::clamp(std::min(t - begin, end - t), 0.0, 0.005);
      return 0.5 - 0.5 * std::cos(pi * edge / 0.005);
    };
    const double emitted = 1.0 + (static_cast<double>(n) - 1600) / 10000;
    ASSERT_NEAR(y[n], emitted * (gate(0.1, 0.25) + gate(0.4, 0.5)), 1e-6) << n;
  }
  // Time before 0 does not count.
  EXPECT_EQ(rendered(set, R"("azimuth": 90, "active": [[-3, -2], [-1, 0.25]])", dry),
            rendered(set, R"("azimuth": 90, "active": [[0, 0.25]])", dry));
}

// The source passes from left to right at 0.5 s. Within the block of 10 ms in which the nearest
// position changes, what it emits passes from one response to the other.
TEST_F(MixRendering, MovingSourcesPassFromResponseToResponse) {
  constexpr std::size_t LENGTH = 300;
  const Samples values = noise(4 * LENGTH, 7);
  const FirFile fir{.sources = {{0, 1, 0}, {0, -1, 0}},
                    .receivers = {{0, 0, 0}, {0.1, 0, 0}},
                    .length = LENGTH,
                    .responses = {values.begin(), values.end()},
                    .delays = {0, 0}};
  const Samples dry = noise(16000, 3);
  const auto image = rendered(load(fir),
                              R"("track": [{"t": 0, "position": [1, 1, 0]},
                                           {"t": 0.99, "position": [1, -1, 0]}])",
                              dry);
  for (const std::size_t r : {0U, 1U}) {
    const double* left = &fir.responses[r * LENGTH];
    const double* right = &fir.responses[(2 + r) * LENGTH];
    std::vector<double> sum(dry.size() + LENGTH - 1);
    for (std::size_t n = 0; n < dry.size(); ++n) {
      // Nearest at 0.49 s is the left one, at 0.50 s the right one.
      const double share = std::clamp((static_cast<double>(n) - 7840.0) / 160.0, 0.0, 1.0);
      for (std::size_t k = 0; k < LENGTH; ++k) {
        sum[n + k] += dry[n] * ((1 - share) * left[k] + share * right[k]);
      }
    }
    EXPECT_LT(differenceInDb(image[r], Samples(sum.begin(), sum.end())), -130) << r;
  }
}

// H(k) = e^(−j2πkd/L) of L = 256, whose inverse transform is a pulse at d.
TEST_F(MixRendering, TransferFunctionsAreTransformedBack) {
  const std::pair<std::vector<int>, std::size_t> cases[] = {{{5, 40}, 0}, {{-3, 20}, 32}};
  for (const auto& [delays, lead] : cases) {
    SofaTransferFunctions data{.sourcePositions = {{1, 0, 0}},
                               .receiverPositions = {{0, 0, 0}, {0, 0.1, 0}},
                               .samplingRate = RATE,
                               .frequencies = 129,
                               .values = {},
                               .title = ""};
    for (const int delay : delays) {
      for (int k = 0; k < 129; ++k) {
        data.values.push_back(std::polar(1.0F, static_cast<float>(-2 * pi * k * delay / 256)));
      }
    }
    writeSofa(folder / "tf.sofa", data);
    const ResponseSet set(folder / "tf.sofa");
    ASSERT_EQ(set.leadIn(), lead);
    const Samples dry = noise(1000, 4);
    const auto image = rendered(set, R"("azimuth": 0)", dry);
    for (const std::size_t r : {0U, 1U}) {
      Samples expected(image[r].size());
      std::copy(dry.begin(), dry.end(),
                expected.begin() + delays[r] + static_cast<std::ptrdiff_t>(lead));
      EXPECT_LT(differenceInDb(image[r], expected), -110) << lead << " " << r;
    }
  }
}

double energy(const std::vector<double>& samples, std::size_t begin, std::size_t end) {
  double sum = 0.0;
  for (std::size_t n = begin; n < end; ++n) sum += samples[n] * samples[n];
  return sum;
}

TEST(Reverberation, HasTheEnergyAndTheDecayAskedFor) {
  const std::vector<double> response = {0.0, 0.0, 2.0, 0.5};
  const Reverberation room{0.4, 6.0, 1};
  const std::vector<double> wet = room.added(response, RATE, 0);

  const std::size_t begin = 2 + RATE / 200;  // 5 ms after the peak
  ASSERT_EQ(wet.size(), begin + 6400);
  EXPECT_EQ(energy(wet, 0, begin), 4.25);
  const double tail = energy(wet, begin, wet.size());
  EXPECT_NEAR(10.0 * std::log10(4.25 / tail), 6.0, 1e-9);
  // 60 dB in 0.4 s are 30 dB in 0.2 s; the estimate from 800 samples each varies by some 0.3 dB.
  const double early = energy(wet, begin + 400, begin + 1200);
  const double late = energy(wet, begin + 3600, begin + 4400);
  EXPECT_NEAR(10.0 * std::log10(early / late), 30.0, 1.5);

  EXPECT_EQ(room.added(response, RATE, 0), wet);
  EXPECT_NE(room.added(response, RATE, 1), wet) << "rooms would echo alike to all microphones";
  EXPECT_EQ(Reverberation{}.added(response, RATE, 0), response);
}

}  // namespace
