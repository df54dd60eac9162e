#include <cmath>
#include <complex>
#include <numbers>
#include <random>

#include "dsp/Window.h"
#include "gmock/gmock.h"
#include "separation/mvdr/Mvdr.h"
#include "tests/support/ComplexMatrixMatchers.h"

namespace {

using BF::Matrix;
using BF::SourceLocation;
using Separation::ImpulseResponses;
using Separation::Mvdr;
using Separation::SpatialCovariance;
using support::MatrixNear;
using support::ROUNDING;

constexpr int RATE = 16000;

double normOf(const Matrix& matrix) { return std::abs(matrix.frobeniusNorm()); }

/// Random responses that decay, from positions 1 m apart on a line.
ImpulseResponses randomResponses(std::mt19937& random, int positions, int microphones, int taps) {
  ImpulseResponses result;
  for (int p = 0; p < positions; ++p) result.positions.emplace_back(1.0, p, 0.0, p, true);
  result.microphones = static_cast<std::size_t>(microphones);
  result.taps = static_cast<std::size_t>(taps);
  result.samplingRate = RATE;
  std::normal_distribution<double> normal;
  for (int i = 0; i < positions * microphones * taps; ++i) {
    result.samples.push_back(normal(random) * std::exp(-3.0 * (i % taps) / taps));
  }
  return result;
}

/// R(k) as a sum over the source's samples, which are independent: each reaches the frame through
/// the stretch of the response that falls into it.
Matrix slowCovariance(const ImpulseResponses& h, std::size_t p, const std::vector<float>& w,
                      int k) {
  const auto L = static_cast<int>(w.size());
  const auto M = static_cast<int>(h.microphones);
  const auto T = static_cast<int>(h.taps);
  Matrix R(M, M);
  for (int emitted = 1 - T; emitted < L; ++emitted) {
    Matrix X(M, 1);
    for (int m = 0; m < M; ++m) {
      std::complex<double> sum = 0.0;
      for (int n = std::max(0, emitted); n < std::min(L, emitted + T); ++n) {
        sum += double{w[static_cast<std::size_t>(n)]} *
               h.response(p, static_cast<std::size_t>(m))[n - emitted] *
               std::polar(1.0, -2.0 * std::numbers::pi * k * n / L);
      }
      X.setElementAt(m, 0, sum);
    }
    R = R + X * X.transposed(true);
  }
  return R;
}

TEST(SpatialCovariance, IsThatOfWhiteNoiseThroughTheWholeResponses) {
  std::mt19937 random(1);
  for (const auto& [length, taps, microphones] :
       {std::tuple{16, 5, 2}, {16, 16, 3}, {12, 40, 2}, {32, 100, 4}, {15, 1, 1}}) {
    const ImpulseResponses h = randomResponses(random, 2, microphones, taps);
    const std::vector<float> w = Audio::makeWindow(Audio::WindowType::Hann, length);
    const SpatialCovariance covariance(h, w);
    for (std::size_t p = 0; p < 2; ++p) {
      const std::vector<Matrix> R = covariance.at(h.positions[p]);
      ASSERT_EQ(R.size(), static_cast<std::size_t>(length) / 2 + 1);
      for (int k = 0; k <= length / 2; ++k) {
        const Matrix expected = slowCovariance(h, p, w, k);
        EXPECT_THAT(R[static_cast<std::size_t>(k)], MatrixNear(expected, ROUNDING * normOf(R[0])))
            << length << " " << taps << " " << k;
      }
    }
    // Half way both positions count alike; close to one it counts alone.
    const std::vector<Matrix> between = covariance.at({1.0, 0.5, 0.0});
    const Matrix mean = (covariance.ofPosition(0)[3] + covariance.ofPosition(1)[3]) * 0.5;
    EXPECT_THAT(between[3], MatrixNear(mean, ROUNDING * normOf(mean)));
    const Matrix alone = covariance.ofPosition(0)[3];
    EXPECT_THAT(covariance.at({1.0, 0.3, 0.0})[3], MatrixNear(alone, ROUNDING * normOf(alone)));
  }
}

/// The power of a source of covariance R in the output of a row.
double powerOf(const Matrix& row, const Matrix& R) {
  return (row * R * row.transposed(true)).getElementAt(0, 0).real();
}

TEST(Mvdr, PassesItsSourceAndHoldsBackTheOthersThroughWholeResponses) {
  std::mt19937 random(2);
  const std::vector<float> w = Audio::makeWindow(Audio::WindowType::Hann, 32);
  for (int trial = 0; trial < 20; ++trial) {
    const int M = 3 + trial % 4;
    const int N = 1 + trial % 3;
    const int reference = trial % M;
    // Of one tap the covariance has rank one: the source passes as the reference microphone hears
    // it.
    const int taps = trial % 2 == 0 ? 1 : 24;
    const SpatialCovariance covariance(randomResponses(random, N, M, taps), w);
    Mvdr engine(covariance, RATE, {reference, 1e-6});
    std::vector<SourceLocation> sources;
    for (int s = 0; s < N; ++s) sources.emplace_back(1.0, s, 0.0, 10 + s, s == 0);
    engine.updateSources(sources);
    std::vector<std::vector<Matrix>> R;
    for (std::size_t p = 0; p < sources.size(); ++p) R.push_back(covariance.ofPosition(p));
    for (int k = 1; k < covariance.bins() - 1; ++k) {
      const Matrix& W = engine.separationMatrices[static_cast<std::size_t>(k)];
      for (int s = 0; s < N; ++s) {
        const auto bin = static_cast<std::size_t>(k);
        const Matrix& Rs = R[static_cast<std::size_t>(s)][bin];
        const double heard = Rs.getElementAt(reference, reference).real();
        const Matrix row = W.getRow(s);
        EXPECT_NEAR(taps == 1 ? powerOf(row, Rs) / heard : 1.0, 1.0, 1e-9);
        for (int i = 0; i < N; ++i) {
          if (i == s) continue;
          const Matrix& Ri = R[static_cast<std::size_t>(i)][bin];
          const double before = Ri.getElementAt(reference, reference).real() / heard;
          const double after = powerOf(row, Ri) / powerOf(row, Rs);
          EXPECT_LT(after, taps == 1 ? 1e-6 : 0.9 * std::max(before, 1.0)) << trial << " " << k;
        }
      }
    }
    // A list of the same places keeps the matrices, whatever the sources are called.
    const std::vector<Matrix> before = engine.separationMatrices;
    for (SourceLocation& source : sources) source.id += 5;
    engine.updateSources(sources);
    EXPECT_THAT(engine.separationMatrices, support::MatricesEq(before));
    EXPECT_EQ(engine.sources[0].id, 15);
  }
}

}  // namespace
