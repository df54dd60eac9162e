// MVDR from whole responses, and what masks make of a first separation.

#include "separation/mvdr/Mvdr.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <numbers>

#include "dsp/Window.h"
#include "gmock/gmock.h"
#include "separation/refine/RecordingRefinement.h"
#include "separation/refine/RunningRefinement.h"
#include "tests/support/ComplexMatrixMatchers.h"
#include "tests/support/MatrixGenerators.h"

namespace {

using BF::Matrix;
using BF::SourceLocation;
using Separation::Covariance;
using Separation::ImpulseResponses;
using Separation::Mvdr;
using Separation::SpatialCovariance;
using support::MatrixNear;
using support::ROUNDING;

constexpr int RATE = 16000;

double normOf(const Matrix& matrix) { return std::abs(matrix.frobeniusNorm()); }

/// Random responses that decay, from positions 1 m apart on a line.
ImpulseResponses randomResponses(support::Generator& random, int positions, int microphones,
                                 int taps) {
  ImpulseResponses result;
  for (int p = 0; p < positions; ++p) result.positions.emplace_back(1.0, p, 0.0, p, true);
  result.microphones = static_cast<std::size_t>(microphones);
  result.taps = static_cast<std::size_t>(taps);
  result.samplingRate = RATE;
  for (int i = 0; i < positions * microphones * taps; ++i) {
    const double decay = std::exp(-3.0 * (i % taps) / taps);
    result.samples.push_back(static_cast<float>(random.gaussian().real() * decay));
  }
  return result;
}

Matrix ofBin(const Covariance& R, int M, int k) {
  Matrix result(M, M);
  std::copy_n(R.begin() + std::ptrdiff_t{k} * M * M, M * M, result.data());
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

TEST(SpatialCovarianceTest, IsThatOfWhiteNoiseThroughTheWholeResponses) {
  support::Generator random(1);
  for (const auto& [length, taps, M] :
       {std::tuple{16, 5, 2}, {16, 16, 3}, {12, 40, 2}, {32, 100, 4}, {15, 1, 1}}) {
    const ImpulseResponses h = randomResponses(random, 2, M, taps);
    const std::vector<float> w = Audio::makeWindow(Audio::WindowType::Hann, length);
    SpatialCovariance covariance(h, w);
    for (std::size_t p = 0; p < 2; ++p) {
      const Covariance R = covariance.at(h.positions[p]);
      const double scale = normOf(ofBin(R, M, 0));
      for (int k = 0; k <= length / 2; ++k) {
        EXPECT_THAT(ofBin(R, M, k), MatrixNear(slowCovariance(h, p, w, k), ROUNDING * scale))
            << length << " " << taps << " " << k;
      }
    }
    // Half way both positions count alike; close to one it counts alone.
    const Matrix R0 = ofBin(covariance.ofPosition(0), M, 3);
    const Matrix mean = (R0 + ofBin(covariance.ofPosition(1), M, 3)) * 0.5;
    const double tolerance = ROUNDING * normOf(mean);
    EXPECT_THAT(ofBin(covariance.at({1.0, 0.5, 0.0}), M, 3), MatrixNear(mean, tolerance));
    EXPECT_THAT(ofBin(covariance.at({1.0, 0.3, 0.0}), M, 3), MatrixNear(R0, tolerance));
  }
}

/// The power of a source of covariance R in the output of a row.
double powerOf(const Matrix& row, const Matrix& R) {
  return (row * R * row.transposed(true)).getElementAt(0, 0).real();
}

TEST(MvdrTest, PassesItsSourceAndHoldsBackTheOthers) {
  support::Generator random(2);
  const std::vector<float> w = Audio::makeWindow(Audio::WindowType::Hann, 32);
  for (int trial = 0; trial < 20; ++trial) {
    const int M = 3 + trial % 4;
    const int N = 1 + trial % 3;
    const int reference = trial % M;
    // Of one tap the covariance has rank one: the source passes as the reference hears it.
    const int taps = trial % 2 == 0 ? 1 : 24;
    SpatialCovariance covariance(randomResponses(random, N, M, taps), w);
    Mvdr engine(covariance, RATE, reference, 1e-6);
    std::vector<SourceLocation> sources;
    for (int s = 0; s < N; ++s) sources.emplace_back(1.0, s, 0.0, 10 + s, s == 0);
    engine.updateSources(sources);
    for (int k = 1; k < engine.numFreq - 1; ++k) {
      const Matrix& W = engine.separationMatrices[static_cast<std::size_t>(k)];
      for (int s = 0; s < N; ++s) {
        const Matrix Rs = ofBin(covariance.ofPosition(static_cast<std::size_t>(s)), M, k);
        const double heard = Rs.getElementAt(reference, reference).real();
        const Matrix row = W.getRow(s);
        EXPECT_NEAR(taps == 1 ? powerOf(row, Rs) / heard : 1.0, 1.0, 1e-9);
        for (int i = 0; i < N; ++i) {
          if (i == s) continue;
          const Matrix Ri = ofBin(covariance.ofPosition(static_cast<std::size_t>(i)), M, k);
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

/// Sources that speak and pause by themselves in every bin, and a first separation by steering
/// vectors that are wrong by -6 dB.
struct Talk {
  explicit Talk(unsigned seed) : random(seed) {
    H = random.gaussian(M, 2);
    wrong = (H + random.gaussian(M, 2) * 0.5).pseudoInverse();
  }

  void nextFrame() {
    images[0] = images[1] = X = Matrix(M, K);
    for (int k = 0; k < K; ++k) {
      for (int s = 0; s < 2; ++s) {
        const std::complex<double> S = random.gaussian() * (random.chance(0.3) ? 1.0 : 0.03);
        for (int m = 0; m < M; ++m) images[s].setElementAt(m, k, H.getElementAt(m, s) * S);
      }
    }
    X = images[0] + images[1];
    Y = wrong * X;
  }

  static constexpr int M = 4;
  static constexpr int K = 6;
  support::Generator random;
  Matrix H, wrong, X, Y;
  Matrix images[2];
};

/// How far outputs are from the sources as microphone 1 hears them, bin by bin.
struct Likeness {
  void add(const Talk& talk, const Matrix& output) {
    for (int s = 0; s < 2; ++s) {
      for (int k = 0; k < Talk::K; ++k) {
        const std::complex<double> y = output.getElementAt(s, k);
        const std::complex<double> image = talk.images[s].getElementAt(1, k);
        cross[s][k] += y * std::conj(image);
        yy[s][k] += std::norm(y);
        ii[s][k] += std::norm(image);
      }
    }
  }

  /// The mean share of an output's power that is not its source.
  double disturbance() const {
    double sum = 0.0;
    for (int i = 0; i < 2 * Talk::K; ++i) {
      const auto [s, k] = std::div(i, Talk::K);
      sum += 1.0 - std::norm(cross[s][k]) / (yy[s][k] * ii[s][k]);
    }
    return sum / (2 * Talk::K);
  }

  /// The largest deviation of a source's gain from 1.
  double deviation() const {
    double most = 0.0;
    for (int i = 0; i < 2 * Talk::K; ++i) {
      const auto [s, k] = std::div(i, Talk::K);
      most = std::max(most, std::abs(cross[s][k] / ii[s][k] - 1.0));
    }
    return most;
  }

  std::complex<double> cross[2][Talk::K] = {};
  double yy[2][Talk::K] = {};
  double ii[2][Talk::K] = {};
};

TEST(RefinementTest, FindsTheSourcesAsTheReferenceHearsThem) {
  const std::vector<std::size_t> both = {0, 1};
  double disturbances[3] = {};  // of the first separation and of both refinements
  for (unsigned seed = 0; seed < 10; ++seed) {
    Talk talk(seed);
    Separation::RunningRefinement running(Talk::M, Talk::K, 0.99, 1e-4, 1);
    Separation::RecordingRefinement recording(Talk::M, Talk::K, 2, 1e-4, 1);
    Likeness ofFirst;
    Likeness ofRunning;
    Likeness ofRecording;
    for (int pass = 0; pass < 4; ++pass) {
      talk.random = support::Generator(1000 + seed);
      for (int frame = 0; frame < 400; ++frame) {
        // Source 3 goes to and fro between two places that count as one.
        const std::vector<SourceLocation> listed = {{1, 0, 0, 2, true},
                                                    {0, 1, frame % 2 * 0.05, 3, true}};
        talk.nextFrame();
        Matrix Y = talk.Y;
        if (pass < 3) recording.gather(listed, both, talk.X, Y);
        if (pass == 3) {
          recording.refine(listed, both, talk.X, Y);
          ofRecording.add(talk, Y);
        }
        if (pass > 0 || frame < 200) continue;
        ofFirst.add(talk, talk.Y);
        Y = talk.Y;
        running.refine(listed, both, talk.X, Y);
        ofRunning.add(talk, Y);
      }
      if (pass < 3) recording.nextPass();
    }
    const Likeness* all[3] = {&ofFirst, &ofRunning, &ofRecording};
    for (int i = 0; i < 3; ++i) disturbances[i] += all[i]->disturbance();
    EXPECT_LT(ofRunning.deviation(), 0.5) << seed;
    EXPECT_LT(ofRecording.deviation(), 0.3) << seed;
  }
  EXPECT_LT(disturbances[1], 0.3 * disturbances[0]);
  EXPECT_LT(disturbances[2], 0.3 * disturbances[0]);
}

}  // namespace
