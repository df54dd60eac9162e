#include "cli/MixRenderer.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include "fileio/SofaWriter.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "tests/cli/mix/FirFile.h"
#include "tests/toolbox/AudioTesting.h"

namespace {

using testing::HasSubstr;
using Samples = std::vector<float>;

constexpr int RATE = 16000;

/// Two positions, left and right, with random responses of 300 samples to two microphones.
FirResponses randomResponses() {
  FirResponses data;
  data.sources = {{0, 1, 0}, {0, -1, 0}};
  data.receivers = 2;
  data.samples = 300;
  for (const float value : noise(4 * 300, 7)) data.values.push_back(static_cast<double>(value));
  data.delays = {0, 0};
  return data;
}

Audio::SceneSource sourceOf(const std::string& json) {
  return Audio::Scene::parse(R"({"sources": [)" + json + "]}", "scene").sources().front();
}

/// Channel r of an image.
Samples channel(const SourceImage& image, std::size_t r) {
  Samples result;
  for (std::size_t n = 0; n < image.length(); ++n) {
    result.push_back(image.samples[n * image.microphones + r]);
  }
  return result;
}

/// The sum that a response's samples define, for the response at `offset` of the data.
Samples directConvolution(const std::vector<double>& x, const FirResponses& data, std::size_t m,
                          std::size_t r) {
  const double* h = data.values.data() + (m * data.receivers + r) * data.samples;
  Samples y(x.size() + data.samples - 1);
  for (std::size_t n = 0; n < y.size(); ++n) {
    double sum = 0;
    for (std::size_t k = 0; k < data.samples; ++k) {
      if (k <= n && n - k < x.size()) sum += h[k] * x[n - k];
    }
    y[n] = static_cast<float>(sum);
  }
  return y;
}

class MixRendering : public testing::Test {
 protected:
  ResponseSet load(const FirResponses& data, const std::string& name = "responses.sofa") const {
    writeFirFile(folder / name, data);
    return ResponseSet(folder / name);
  }

  TestFolder folder;
};

TEST_F(MixRendering, ConvolvesWithTheNearestPositionsResponses) {
  const FirResponses data = randomResponses();
  const ResponseSet set = load(data);
  EXPECT_EQ(set.leadIn(), 0U);
  const Samples dry = noise(9000, 1);
  const std::vector<double> x(dry.begin(), dry.end());
  const auto source = sourceOf(R"({"id": 0, "azimuth": -80, "distance": 2})");
  const SourceImage image = MixRenderer(set).render(source, dry);
  ASSERT_EQ(image.microphones, 2U);
  for (const std::size_t r : {0U, 1U}) {
    EXPECT_LT(differenceInDb(channel(image, r), directConvolution(x, data, 1, r)), -140) << r;
  }
  EXPECT_NEAR(MixRenderer(set).largestDeviation(source, dry.size()), 10, 1e-6);
}

TEST_F(MixRendering, DelaysShiftTheResponses) {
  FirResponses data;
  data.sources = {{1, 0, 0}};
  data.receivers = 3;
  data.samples = 1;
  data.values = {1, -0.5, 2};
  data.delays = {0, 40, 100.25};
  const ResponseSet set = load(data);
  Samples dry(400);
  for (std::size_t n = 0; n < dry.size(); ++n) {
    // A tone that fades in and out, so that its delayed form is known between the samples too.
    const double t = static_cast<double>(n);
    dry[n] =
        static_cast<float>(std::sin(0.7 * t) * std::pow(std::sin(std::numbers::pi * t / 400), 2));
  }
  const SourceImage image = MixRenderer(set).render(sourceOf(R"({"id": 0, "azimuth": 0})"), dry);
  const auto expected = [&](double gain, double delay) {
    Samples y(image.length());
    for (std::size_t n = 0; n < y.size(); ++n) {
      const double t = static_cast<double>(n) - delay;
      if (t < 0 || t > 400) continue;
      const double fade = std::sin(std::numbers::pi * t / 400);
      y[n] = static_cast<float>(gain * std::sin(0.7 * t) * fade * fade);
    }
    return y;
  };
  EXPECT_LT(differenceInDb(channel(image, 0), expected(1, 0)), -140);
  EXPECT_LT(differenceInDb(channel(image, 1), expected(-0.5, 40)), -140);
  EXPECT_LT(differenceInDb(channel(image, 2), expected(2, 100.25)), -60);
  data.delays = {0, -1, 0};
  EXPECT_THAT(messageOf<SofaError>([&] { load(data, "early.sofa"); }),
              HasSubstr("early.sofa: Data.Delay holds -1, expected 0 to 160000 samples (10 s)"));
}

TEST_F(MixRendering, ActiveRangesGateWithRamps) {
  FirResponses data = randomResponses();
  data.samples = 1;
  data.values = {1, 1, 1, 1};
  const ResponseSet set = load(data);
  const Samples dry(10000, 1.0F);
  const SourceImage image = MixRenderer(set).render(
      sourceOf(R"({"id": 0, "azimuth": 90, "active": [[0.1, 0.2], [0.2, 0.25], [0.4, 0.5]]})"),
      dry);
  const Samples y = channel(image, 0);
  // 10 000 dry samples from 0.1 s on reach to 0.725 s; the last range ends before.
  ASSERT_EQ(y.size(), 8000U);
  for (std::size_t n = 0; n < y.size(); ++n) {
    const double t = static_cast<double>(n) / RATE;
    const auto gate = [&](double begin, double end) {
      const double edge = std::min(t - begin, end - t);
      if (edge < 0) return 0.0;
      return edge >= 0.005 ? 1.0 : 0.5 - 0.5 * std::cos(std::numbers::pi * edge / 0.005);
    };
    ASSERT_NEAR(y[n], gate(0.1, 0.25) + gate(0.4, 0.5), 1e-6) << n;
  }

  // The dry signal begins with the first range and runs on while it is muted.
  Samples counting(10000);
  for (std::size_t n = 0; n < counting.size(); ++n) counting[n] = static_cast<float>(n) / 10000;
  const Samples z = channel(
      MixRenderer(set).render(
          sourceOf(R"({"id": 0, "azimuth": 90, "active": [[0.1, 0.2], [0.4, 0.5]]})"), counting),
      0);
  EXPECT_NEAR(z[2400], 0.08, 1e-6);  // 0.15 s: 800 samples after 0.1 s
  EXPECT_NEAR(z[7200], 0.56, 1e-6);  // 0.45 s: 5600 samples after 0.1 s
}

// The source passes from left to right at 0.5 s. Within the block of 10 ms in which the nearest
// position changes, what it emits passes from one response to the other.
TEST_F(MixRendering, MovingSourcesPassFromResponseToResponse) {
  const FirResponses data = randomResponses();
  const ResponseSet set = load(data);
  const Samples dry = noise(16000, 3);
  const SourceImage image =
      MixRenderer(set).render(sourceOf(R"({"id": 0, "track": [{"t": 0, "position": [1, 1, 0]},
                                      {"t": 0.99, "position": [1, -1, 0]}]})"),
                              dry);
  std::vector<double> left(dry.size());
  std::vector<double> right(dry.size());
  for (std::size_t n = 0; n < dry.size(); ++n) {
    // Nearest at 0.49 s is the left one, at 0.50 s the right one.
    const double share = std::clamp((static_cast<double>(n) - 7840.0) / 160.0, 0.0, 1.0);
    left[n] = (1 - share) * static_cast<double>(dry[n]);
    right[n] = share * static_cast<double>(dry[n]);
  }
  for (const std::size_t r : {0U, 1U}) {
    Samples expected = directConvolution(left, data, 0, r);
    const Samples other = directConvolution(right, data, 1, r);
    for (std::size_t n = 0; n < expected.size(); ++n) expected[n] += other[n];
    EXPECT_LT(differenceInDb(channel(image, r), expected), -130) << r;
  }
}

// H(k) = e^(−j2πkd/L) of L = 256, whose inverse transform is a pulse at d.
TEST_F(MixRendering, TransferFunctionsAreTransformedBack) {
  struct Case {
    int first;
    int second;
    std::size_t lead;
  };
  for (const Case c : {Case{5, 40, 0}, Case{-3, 20, 32}}) {
    SofaTransferFunctions data;
    data.sourcePositions = {{1, 0, 0}};
    data.receiverPositions = {{0, 0, 0}, {0, 0.1, 0}};
    data.samplingRate = RATE;
    data.frequencies = 129;
    for (const int delay : {c.first, c.second}) {
      for (int k = 0; k < 129; ++k) {
        data.values.push_back(
            std::polar(1.0F, static_cast<float>(-2 * std::numbers::pi * k * delay / 256)));
      }
    }
    writeSofa(folder / "tf.sofa", data);
    const ResponseSet set(folder / "tf.sofa");
    ASSERT_EQ(set.leadIn(), c.lead);
    const Samples dry = noise(1000, 4);
    const SourceImage image = MixRenderer(set).render(sourceOf(R"({"id": 0, "azimuth": 0})"), dry);
    const int lead = static_cast<int>(c.lead);
    const int delays[] = {c.first + lead, c.second + lead};
    for (const std::size_t r : {0U, 1U}) {
      Samples expected(image.length());
      std::copy(dry.begin(), dry.end(), expected.begin() + delays[r]);
      EXPECT_LT(differenceInDb(channel(image, r), expected), -110) << c.first << " " << r;
    }
  }
}

}  // namespace
