#include "cli/ScoreMetrics.h"

#include <cmath>
#include <limits>
#include <random>

#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace {

using testing::HasSubstr;
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

/// The signal delayed (advanced, if negative) and cut to its length.
Samples shifted(const Samples& x, int delay) {
  Samples result(x.size());
  for (int n = 0; n < static_cast<int>(x.size()); ++n) {
    const int from = n - delay;
    if (from >= 0 && from < static_cast<int>(x.size())) {
      result[static_cast<std::size_t>(n)] = x[static_cast<std::size_t>(from)];
    }
  }
  return result;
}

/// Zeros at both ends, so that filtering loses nothing there.
Samples padded(Samples x, std::size_t zeros) {
  x.insert(x.begin(), zeros, 0.0);
  x.insert(x.end(), zeros, 0.0);
  return x;
}

SourceScore score(const std::vector<Samples>& references, const Samples& estimate, int taps = 1,
                  std::size_t source = 0) {
  std::vector<NamedSignal> named;
  for (const Samples& reference : references) named.push_back({"reference.wav", reference});
  return ScoreMetrics(named, taps).score({"estimate.wav", estimate}, source);
}

std::string refusal(const std::vector<NamedSignal>& references, int taps,
                    const NamedSignal& estimate) {
  try {
    ScoreMetrics(references, taps).score(estimate, 0);
  } catch (const ScoreError& error) {
    return error.what();
  }
  return "nothing was thrown";
}

// Estimates in the space of four samples, where the parts can be read off: references along the
// first two axes, artifacts along the others.
struct HandCase {
  const char* name;
  std::vector<Samples> references;
  Samples estimate;
  SourceScore expected;
};

class HandComputed : public testing::TestWithParam<HandCase> {};

TEST_P(HandComputed, Scores) {
  const HandCase& c = GetParam();
  const SourceScore actual = score(c.references, c.estimate);
  const auto check = [](double value, double expected) {
    // Equal infinite values have no difference to compare.
    EXPECT_TRUE(value == expected || std::abs(value - expected) < 1e-9)
        << value << ", expected " << expected;
  };
  check(actual.sdr, c.expected.sdr);
  check(actual.sir, c.expected.sir);
  check(actual.sar, c.expected.sar);
}

const Samples X = {1, 0, 0, 0};
const Samples Y = {0, 1, 0, 0};

INSTANTIATE_TEST_SUITE_P(
    , HandComputed,
    testing::Values(
        // 10² against 1² + 3²; against 1²; against 3².
        HandCase{"Orthogonal", {X, Y}, {10, 1, 3, 0}, {10, 20, 20 - 10 * std::log10(9.0)}},
        HandCase{"LouderReference", {{7, 0, 0, 0}, Y}, {10, 1, 0, 0}, {20, 20, INF}},
        HandCase{"Perfect", {X, Y}, X, {INF, INF, INF}},
        HandCase{"Inverted", {X, Y}, {-0.3, 0, 0, 0}, {INF, INF, INF}},
        HandCase{"OnlyInterference", {X, Y}, {0, 2, 0, 0}, {-INF, -INF, -INF}},
        HandCase{"OnlyArtifacts", {X, Y}, {1, 0, 0.1, 0}, {20, INF, 20}},
        HandCase{"OneSource", {X}, {1, 1, 0, 0}, {0, INF, 0}},
        // The target is (2, 0), the span of both references the whole plane: (2, 1) − (2, 0) is
        // interference, although one reference contains the other.
        HandCase{"ObliqueReferences",
                 {X, {1, 1, 0, 0}},
                 {2, 1, 0, 2},
                 {10 * std::log10(4.0 / 5), 10 * std::log10(4.0), 0}}),
    [](const auto& test) { return test.param.name; });

TEST(ScoreMetrics, ScaleOfEstimateAndReferencesDoesNotCount) {
  const Samples s = gaussian(2000, 1);
  const Samples t = gaussian(2000, 2);
  const Samples e = sum(1, sum(1, s, 0.2, t), 0.1, gaussian(2000, 3));
  for (const int taps : {1, 5}) {
    const SourceScore plain = score({s, t}, e, taps);
    for (const double scale : {-1e-5, 0.3, 1e4}) {
      const SourceScore scaled =
          score({sum(scale, s, 0, s), sum(1 / scale, t, 0, t)}, sum(3 * scale, e, 0, e), taps);
      EXPECT_NEAR(scaled.sdr, plain.sdr, 1e-8);
      EXPECT_NEAR(scaled.sir, plain.sir, 1e-8);
      EXPECT_NEAR(scaled.sar, plain.sar, 1e-8);
    }
  }
}

// The errors are orthogonal: 10^(−SDR/10) = 10^(−SIR/10) + 10^(−SAR/10).
TEST(ScoreMetrics, DistortionIsInterferenceAndArtifacts) {
  const std::vector<Samples> s = {gaussian(3000, 1), gaussian(3000, 2), gaussian(3000, 3)};
  const Samples e = sum(1, sum(0.5, s[0], 1, s[1]), 0.3, sum(1, s[2], 1, gaussian(3000, 4)));
  for (const int taps : {1, 2, 7, 64}) {
    const SourceScore actual = score(s, e, taps, 1);
    EXPECT_NEAR(std::pow(10, -actual.sdr / 10),
                std::pow(10, -actual.sir / 10) + std::pow(10, -actual.sar / 10), 1e-9)
        << taps;
  }
}

TEST(ScoreMetrics, FiltersWithinTheTapsDoNotCount) {
  const Samples s = padded(gaussian(4000, 1), 40);
  const Samples t = padded(gaussian(4000, 2), 40);
  struct Case {
    int delay;
    int taps;
    bool covered;
  };
  // Delays of T taps: −⌊(T − 1)/2⌋ … ⌊T/2⌋.
  for (const Case c :
       {Case{1, 1, false}, Case{1, 2, true}, Case{-1, 2, false}, Case{-1, 3, true},
        Case{16, 32, true}, Case{-15, 32, true}, Case{17, 32, false}, Case{-16, 32, false}}) {
    const Samples filtered = sum(0.8, s, -0.5, shifted(s, c.delay));
    const SourceScore actual = score({s, t}, sum(1, filtered, 0.01, t), c.taps);
    SCOPED_TRACE(testing::Message() << "delay " << c.delay << ", taps " << c.taps);
    if (c.covered) {
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
  const Samples noise = gaussian(8000, 5);
  const SourceScore actual = score({tone, noise}, sum(0.5, tone, 0.01, noise), 128);
  // 0.5² · ½ against 0.01².
  EXPECT_NEAR(actual.sir, 10 * std::log10(0.125 / 1e-4), 0.5);
  EXPECT_GT(actual.sar, 100);
  EXPECT_EQ(score({tone, noise}, tone, 128).sdr, INF);
}

TEST(ScoreMetrics, RefusesWhatHasNoScore) {
  const Samples s = gaussian(500, 1);
  const Samples t = gaussian(500, 2);
  const Samples silence(500);
  EXPECT_THAT(refusal({{"a.wav", s}, {"b.wav", silence}}, 1, {"e.wav", s}),
              HasSubstr("b.wav: the reference is silent over the compared length of 500 samples"));
  EXPECT_THAT(refusal({{"a.wav", s}}, 1, {"e.wav", silence}),
              HasSubstr("e.wav: the signal is silent"));
  EXPECT_THAT(refusal({{"a.wav", s}, {"b.wav", t}, {"c.wav", sum(2, s, -1, t)}}, 1, {"e.wav", s}),
              HasSubstr("c.wav: the reference is a weighted sum of those before it"));
  const Samples p = padded(s, 20);
  EXPECT_THAT(refusal({{"a.wav", p}, {"b.wav", shifted(p, 3)}}, 8, {"e.wav", p}),
              HasSubstr("b.wav: the reference is a sum of filtered versions (8 taps)"));
  EXPECT_EQ(refusal({{"a.wav", p}, {"b.wav", shifted(p, 3)}}, 4, {"e.wav", p}),
            "nothing was thrown");
  EXPECT_THAT(refusal({}, 1, {"e.wav", s}), HasSubstr("there are no references"));
}

}  // namespace
