#include "scoring/ScoreMetrics.h"

#include <cmath>
#include <limits>
#include <random>
#include <utility>

#include "gmock/gmock.h"
#include "tests/support/AudioTesting.h"

namespace {

using Samples = std::vector<double>;

constexpr double INF = std::numeric_limits<double>::infinity();

Samples gaussian(std::size_t count, unsigned seed) {
  std::mt19937 generator(seed);
  std::normal_distribution<double> normal;
  Samples result(count);
  for (double& value : result) value = normal(generator);
  return result;
}

Samples sum(double a, const Samples& x, double b, const Samples& y) {
  Samples result(x.size());
  for (std::size_t n = 0; n < x.size(); ++n) result[n] = a * x[n] + b * y[n];
  return result;
}

/// Noise between zeros, so that filtering loses nothing at the ends; delayed (or advanced).
Samples padded(std::size_t count, unsigned seed, int delay = 0) {
  const Samples x = gaussian(count, seed);
  Samples result(count + 80);
  std::copy(x.begin(), x.end(), result.begin() + 40 + delay);
  return result;
}

SourceScore score(const std::vector<Samples>& references, const Samples& estimate, int taps = 1,
                  std::size_t source = 0) {
  std::vector<NamedSignal> named;
  for (const Samples& reference : references) named.push_back({"reference.wav", reference});
  return ScoreMetrics(named, taps).score({"estimate.wav", estimate}, source);
}

// Estimates in the space of four samples, where the parts can be read off: references along the
// first two axes, artifacts along the others.
TEST(ScoreMetrics, ScoresComputedByHand) {
  const Samples X = {1, 0, 0, 0};
  const Samples Y = {0, 1, 0, 0};
  struct Case {
    std::vector<Samples> references;
    Samples estimate;
    SourceScore expected;
  };
  const Case cases[] = {
      // 10² against 1² + 3²; against 1²; against 3².
      {{X, Y}, {10, 1, 3, 0}, {10, 20, 20 - 10 * std::log10(9.0)}},
      {{{7, 0, 0, 0}, Y}, {10, 1, 0, 0}, {20, 20, INF}},
      {{X, Y}, {-0.3, 0, 0, 0}, {INF, INF, INF}},
      {{X, Y}, {0, 2, 0, 0}, {-INF, -INF, -INF}},
      {{X, Y}, {1, 0, 0.1, 0}, {20, INF, 20}},
      {{X}, {1, 1, 0, 0}, {0, INF, 0}},
      // The target is (2, 0), the span of both references the whole plane: (2, 1) − (2, 0) is
      // interference, although one reference contains the other.
      {{X, {1, 1, 0, 0}}, {2, 1, 0, 2}, {10 * std::log10(0.8), 10 * std::log10(4.0), 0}}};
  for (const Case& c : cases) {
    const SourceScore actual = score(c.references, c.estimate);
    SCOPED_TRACE(testing::PrintToString(c.estimate));
    EXPECT_DOUBLE_EQ(actual.sdr, c.expected.sdr);
    EXPECT_DOUBLE_EQ(actual.sir, c.expected.sir);
    EXPECT_DOUBLE_EQ(actual.sar, c.expected.sar);
  }
}

// Scales do not count; errors are orthogonal: 10^(−SDR/10) = 10^(−SIR/10) + 10^(−SAR/10).
TEST(ScoreMetrics, ScalesDoNotCountAndErrorsAddUp) {
  const Samples s = gaussian(2000, 1);
  const Samples t = gaussian(2000, 2);
  const Samples e = sum(1, sum(0.5, s, 1, t), 0.3, gaussian(2000, 3));
  for (const int taps : {1, 2, 7, 64}) {
    const SourceScore plain = score({s, t}, e, taps, 1);
    EXPECT_NEAR(std::pow(10, -plain.sdr / 10),
                std::pow(10, -plain.sir / 10) + std::pow(10, -plain.sar / 10), 1e-9);
    for (const double scale : {-1e-5, 1e4}) {
      const SourceScore scaled =
          score({sum(scale, s, 0, s), sum(1 / scale, t, 0, t)}, sum(3 * scale, e, 0, e), taps, 1);
      EXPECT_NEAR(scaled.sdr, plain.sdr, 1e-8) << taps;
      EXPECT_NEAR(scaled.sir, plain.sir, 1e-8) << taps;
    }
  }
}

TEST(ScoreMetrics, FiltersWithinTheTapsDoNotCount) {
  const Samples s = padded(4000, 1);
  const Samples t = padded(4000, 2);
  // Delays of T taps: −⌊(T − 1)/2⌋ … ⌊T/2⌋.
  const std::pair<int, int> cases[] = {{1, 1},   {1, 2},    {-1, 2},  {-1, 3},
                                       {16, 32}, {-15, 32}, {17, 32}, {-16, 32}};
  for (const auto& [delay, taps] : cases) {
    const Samples filtered = sum(0.8, s, -0.5, padded(4000, 1, delay));
    const SourceScore actual = score({s, t}, sum(1, filtered, 0.01, t), taps);
    SCOPED_TRACE(testing::Message() << "delay " << delay << ", taps " << taps);
    if (-((taps - 1) / 2) <= delay && delay <= taps / 2) {
      // Filtered target: 0.8² + 0.5² times the energy of s.
      EXPECT_NEAR(actual.sir, 40 + 10 * std::log10(0.89), 0.3);
      EXPECT_EQ(actual.sar, INF);
    } else {
      EXPECT_LT(actual.sar, 10);
    }
  }
}

// Signals of few frequencies make filtered versions that depend on one another; the projection does
// not suffer from it.
TEST(ScoreMetrics, TonesWithManyTaps) {
  Samples tone(8000);
  for (std::size_t n = 0; n < tone.size(); ++n) tone[n] = std::sin(0.3 * static_cast<double>(n));
  const Samples other = gaussian(8000, 5);
  const SourceScore actual = score({tone, other}, sum(0.5, tone, 0.01, other), 128);
  // 0.5² · ½ against 0.01².
  EXPECT_NEAR(actual.sir, 10 * std::log10(0.125 / 1e-4), 0.5);
  EXPECT_GT(actual.sar, 100);
  EXPECT_EQ(score({tone, other}, tone, 128).sdr, INF);
}

TEST(ScoreMetrics, RefusesReferencesThatAreFilteredVersionsOfOthers) {
  const Samples p = padded(500, 1);
  const std::vector<NamedSignal> references = {{"a.wav", p}, {"b.wav", padded(500, 1, 3)}};
  EXPECT_NO_THROW(ScoreMetrics(references, 4));
  EXPECT_THAT(messageOf<ScoreError>([&] { ScoreMetrics(references, 8); }),
              testing::StartsWith("b.wav: the reference is a sum of filtered versions (8 taps)"));
}

}  // namespace
