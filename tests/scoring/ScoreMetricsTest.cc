#include "scoring/ScoreMetrics.h"

#include <Eigen/QR>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <utility>

#include "dsp/DataError.h"
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

/// Low-passed by a windowed sinc, to a few percent of the frequencies, and rounded to single
/// precision as files hold it: the frequencies above hold rounding errors 150 dB below, or none.
Samples bandLimited(const Samples& x) {
  constexpr int HALF = 60;
  Samples result(x.size());
  for (int n = HALF; n < static_cast<int>(x.size()) - HALF; ++n) {
    for (int d = 1 - HALF; d < HALF; ++d) {
      const double h = d == 0 ? 0.3 : std::sin(0.3 * M_PI * d) / (M_PI * d);
      result[n] += h * std::pow(std::cos(M_PI * d / 2 / HALF), 4) * x[n - d];
    }
    result[n] = static_cast<float>(result[n]);
  }
  return result;
}

/// The scores by an orthogonal factorisation of the explicit matrix of all delayed references.
SourceScore denseScore(const std::vector<Samples>& references, const Samples& estimate, int taps) {
  const auto length = static_cast<Eigen::Index>(estimate.size());
  const auto N = static_cast<Eigen::Index>(references.size());
  Eigen::MatrixXd A = Eigen::MatrixXd::Zero(length + taps - 1, N * taps);
  for (Eigen::Index i = 0; i < N; ++i) {
    const Eigen::Map<const Eigen::VectorXd> s(references[i].data(), length);
    for (int a = 0; a < taps; ++a) A.col(i * taps + a).segment(a, length) = s.normalized();
  }
  Eigen::VectorXd e = Eigen::VectorXd::Zero(A.rows());
  e.segment((taps - 1) / 2, length) = Eigen::Map<const Eigen::VectorXd>(estimate.data(), length);
  const auto projection = [&](Eigen::Index columns) -> Eigen::VectorXd {
    Eigen::ColPivHouseholderQR<Eigen::MatrixXd> qr;
    qr.setThreshold(1e-9);
    qr.compute(A.leftCols(columns));
    return A.leftCols(columns) * qr.solve(e);
  };
  const Eigen::VectorXd t = projection(taps);
  const Eigen::VectorXd p = projection(N * taps);
  const auto ratio = [&](const Eigen::VectorXd& error) {
    return 10 * std::log10(t.squaredNorm() / error.squaredNorm());
  };
  return {ratio(e - t), ratio(p - t), ratio(e - p)};
}

double powerOf(double decibels) { return std::pow(10, -decibels / 10); }

// Estimates made of all references, of the last one faintly, and of something else.
TEST(ScoreMetrics, AgreesWithADenseSolutionWhateverTheReferencesAre) {
  enum Kind { WIDE, NARROW, LEVELS, ALIKE, MOSTLY_SILENT, TONES };
  struct Case {
    Kind kind;
    int sources, taps;
    std::size_t length;
  };
  const Case cases[] = {{WIDE, 2, 1, 500},    {WIDE, 3, 2, 20},     {WIDE, 4, 32, 700},
                        {WIDE, 2, 8, 11},     {NARROW, 2, 64, 900}, {NARROW, 4, 24, 700},
                        {NARROW, 3, 41, 800}, {NARROW, 2, 1, 400},  {LEVELS, 3, 16, 400},
                        {ALIKE, 2, 16, 500},  {ALIKE, 3, 1, 300},   {MOSTLY_SILENT, 2, 30, 900},
                        {TONES, 2, 40, 600}};
  unsigned seed = 0;
  for (const auto& [kind, sources, taps, length] : cases) {
    SCOPED_TRACE(testing::Message() << "kind " << kind << ", " << sources << " sources, " << taps
                                    << " taps, " << length << " samples");
    std::vector<Samples> references;
    Samples estimate = gaussian(length, ++seed);
    if (kind == NARROW) estimate = bandLimited(estimate);
    for (double& value : estimate) value *= 0.03;
    for (int i = 0; i < sources; ++i) {
      Samples s = gaussian(length, ++seed);
      if (kind == NARROW) s = bandLimited(s);
      if (kind == ALIKE && i > 0) s = sum(1, references[0], 0.003, s);
      if (kind == MOSTLY_SILENT) std::fill(s.begin() + 60, s.end(), 0.0);
      if (kind == TONES && i == 0) {
        for (std::size_t n = 0; n < length; ++n) s[n] = std::sin(0.3 * static_cast<double>(n));
      }
      estimate = sum(1, estimate, i == 0 ? 1 : 0.1 / i, s);
      if (kind == LEVELS) s = sum(std::pow(1e-9, i), s, 0, s);
      references.push_back(s);
    }
    const SourceScore actual = score(references, estimate, taps);
    const SourceScore expected = denseScore(references, estimate, taps);
    EXPECT_NEAR(actual.sdr, expected.sdr, 1e-3);
    EXPECT_NEAR(actual.sir, expected.sir, 1e-2);
    // The oracle's filters amplify rounding errors of the references that much, to explain noise.
    EXPECT_NEAR(actual.sar, expected.sar, kind == NARROW ? 0.1 : 1e-2);
    EXPECT_NEAR(powerOf(actual.sdr) / (powerOf(actual.sir) + powerOf(actual.sar)), 1, 1e-9);
  }
}

// The parts lie apart in time, further than the filters reach, so that their energies are known.
TEST(ScoreMetrics, KnowsThePartsOfLongFilters) {
  constexpr int TAPS = 1024;
  for (const bool narrow : {false, true}) {
    std::vector<Samples> references;
    Samples estimate(9000);
    const double gains[] = {1, 0.1, 0.03};
    double energies[3];
    for (int i = 0; i < 3; ++i) {
      const Samples part = narrow ? bandLimited(gaussian(900, i)) : gaussian(900, i);
      Samples s(estimate.size());
      std::copy(part.begin(), part.end(), s.begin() + 600 + 3000 * i);
      for (std::size_t n = 300; n < s.size(); ++n) estimate[n] += gains[i] * s[n - 300 * (i < 2)];
      energies[i] = std::inner_product(s.begin(), s.end(), s.begin(), 0.0) * gains[i] * gains[i];
      if (i < 2) references.push_back(std::move(s));
    }
    const SourceScore actual = score(references, estimate, TAPS);
    EXPECT_NEAR(actual.sir, 10 * std::log10(energies[0] / energies[1]), 1e-6);
    EXPECT_NEAR(actual.sar, 10 * std::log10(energies[0] / energies[2]), 1e-6);
  }
}

TEST(ScoreMetrics, ScalesDoNotCount) {
  const Samples s = gaussian(2000, 1);
  const Samples t = gaussian(2000, 2);
  const Samples e = sum(1, sum(0.5, s, 1, t), 0.3, gaussian(2000, 3));
  for (const int taps : {1, 7, 64}) {
    const SourceScore plain = score({s, t}, e, taps, 1);
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

TEST(ScoreMetrics, RefusesReferencesThatAreFilteredVersionsOfOthers) {
  const Samples p = padded(500, 1);
  const std::vector<NamedSignal> references = {{"a.wav", p}, {"b.wav", padded(500, 1, 3)}};
  EXPECT_NO_THROW(ScoreMetrics(references, 4));
  EXPECT_THAT(messageOf<DataError>([&] { ScoreMetrics(references, 8); }),
              testing::StartsWith("b.wav: the reference is a sum of filtered versions (8 taps)"));
  EXPECT_THAT(messageOf<DataError>([&] { ScoreMetrics(references, 579); }),
              testing::StartsWith("a.wav: 580 samples are too few to tell 2 references apart with "
                                  "filters of 579 taps, expected more than 580"));
}

}  // namespace
