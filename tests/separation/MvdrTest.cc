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
using Separation::FrameStack;
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

/// The blocks of a bin, those of later frames to the right: M × D · M.
Matrix ofBin(const Covariance& R, int M, int D, int k) {
  Matrix result(M, D * M);
  for (int i = 0; i < M; ++i) {
    for (int c = 0; c < D * M; ++c) {
      const int element = ((k * D + c / M) * M + i) * M + c % M;
      result.setElementAt(i, c, R[static_cast<std::size_t>(element)]);
    }
  }
  return result;
}

/// R(k), D · M × D · M, as a sum over the source's samples, which are independent: each reaches a
/// frame through the stretch of the response that falls into it.
Matrix slowCovariance(const ImpulseResponses& h, std::size_t p, const std::vector<float>& w, int k,
                      const FrameStack& stack) {
  const auto L = static_cast<int>(w.size());
  const auto M = static_cast<int>(h.microphones);
  const auto T = static_cast<int>(h.taps);
  const int D = stack.frames;
  const int lag = stack.apart * stack.advance;
  Matrix R(D * M, D * M);
  for (int emitted = 1 - T - (D - 1) * lag; emitted < L; ++emitted) {
    Matrix X(D * M, 1);
    for (int i = 0; i < D * M; ++i) {
      const int first = emitted + i / M * lag;  // counted from the frame's first sample
      std::complex<double> sum = 0.0;
      for (int n = std::max(0, first); n < std::min(L, first + T); ++n) {
        sum += double{w[static_cast<std::size_t>(n)]} *
               h.response(p, static_cast<std::size_t>(i % M))[n - first] *
               std::polar(1.0, -2.0 * std::numbers::pi * k * n / L);
      }
      X.setElementAt(i, 0, sum);
    }
    R = R + X * X.transposed(true);
  }
  return R;
}

Matrix firstRows(const Matrix& R, int M) {
  Matrix result(M, R.getColumnCount());
  std::copy_n(R.data(), std::ptrdiff_t{M} * R.getColumnCount(), result.data());
  return result;
}

TEST(SpatialCovarianceTest, IsThatOfWhiteNoiseThroughTheWholeResponses) {
  support::Generator random(1);
  for (const auto& [length, taps, M, stack] : {std::tuple{16, 5, 2, FrameStack{1, 1, 4}},
                                               {16, 16, 3, FrameStack{2, 1, 4}},
                                               {12, 40, 2, FrameStack{3, 2, 3}},
                                               {32, 100, 4, FrameStack{2, 3, 16}},
                                               {15, 1, 1, FrameStack{4, 1, 5}}}) {
    const ImpulseResponses h = randomResponses(random, 2, M, taps);
    const std::vector<float> w = Audio::makeWindow(Audio::WindowType::Hann, length);
    SpatialCovariance covariance(h, w, stack);
    const auto at = [&, &m = M, &s = stack](const BF::Location& place, int k) {
      return ofBin(covariance.at(place), m, s.frames, k);
    };
    for (std::size_t p = 0; p < 2; ++p) {
      const double scale = normOf(at(h.positions[p], 0));
      for (int k = 0; k <= length / 2; ++k) {
        EXPECT_THAT(at(h.positions[p], k),
                    MatrixNear(firstRows(slowCovariance(h, p, w, k, stack), M), ROUNDING * scale))
            << length << " " << taps << " " << k;
      }
    }
    // Half way both positions count alike; close to one, or behind it, it counts alone.
    const Matrix mean = (at(h.positions[0], 3) + at(h.positions[1], 3)) * 0.5;
    const double tolerance = ROUNDING * normOf(mean);
    EXPECT_THAT(at({1.0, 0.5, 0.0}, 3), MatrixNear(mean, tolerance));
    EXPECT_THAT(at({1.0, 0.3, 0.0}, 3), MatrixNear(at(h.positions[0], 3), tolerance));
    EXPECT_THAT(at({10.0, 0.0, 0.0}, 3), MatrixNear(at(h.positions[0], 3), tolerance));
  }
}

/// The power of what has covariance R in the output of a row.
double powerOf(const Matrix& row, const Matrix& R) {
  return (row * R * row.transposed(true)).getElementAt(0, 0).real();
}

TEST(MvdrTest, PassesItsSourceAndHoldsBackWhatElseThereIs) {
  support::Generator random(2);
  const std::vector<float> w = Audio::makeWindow(Audio::WindowType::Hann, 32);
  for (int trial = 0; trial < 20; ++trial) {
    const int M = 2 + trial % 4;
    const int N = 1 + trial % 3;
    const int reference = trial % M;
    const FrameStack stack = FrameStack::halfOverlapping(1 + trial % 4, 32, 8 + trial % 9);
    const ImpulseResponses h = randomResponses(random, N, M, trial % 2 == 0 ? 1 : 50);
    Mvdr engine(SpatialCovariance(h, w, stack), RATE, reference, 1e-4);
    std::vector<SourceLocation> sources;
    for (int s = 0; s < N; ++s) sources.emplace_back(1.0, s, 0.0, 10 + s, s == 0);
    engine.updateSources(sources);
    for (const int k : {0, 5, 16}) {
      std::vector<Matrix> R;
      double sigma = 0.0;
      for (int s = 0; s < N; ++s) {
        R.push_back(slowCovariance(h, static_cast<std::size_t>(s), w, k, stack));
        for (int m = 0; m < M; ++m) sigma += R.back().getElementAt(m, m).real() / (M * N);
      }
      for (std::size_t s = 0; s < R.size(); ++s) {
        const double heard = R[s].getElementAt(reference, reference).real();
        const Matrix a = R[s].getColumn(reference) * (1.0 / heard);
        Matrix Rv = (R[s] - a * a.transposed(true) * heard) * 0.1 +
                    Matrix::I(stack.frames * M) * (1e-4 * sigma);
        for (std::size_t i = 0; i < R.size(); ++i) Rv = i == s ? Rv : Rv + R[i];
        const Matrix row =
            engine.separationMatrices[static_cast<std::size_t>(k)].getRow(static_cast<int>(s));
        EXPECT_NEAR(std::abs((row * a).getElementAt(0, 0) - 1.0), 0.0, 1e-7) << trial << " " << k;
        // Of rows that pass a, none nearby lets less through.
        Matrix other = random.gaussian(1, stack.frames * M);
        const double size = normOf(a) * normOf(a);
        other = other - a.transposed(true) * ((other * a).getElementAt(0, 0) / size);
        for (const double step : {1e-2, -1e-2}) {
          EXPECT_GE(powerOf(row + other * step, Rv), powerOf(row, Rv) * (1.0 - 1e-9)) << trial;
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

TEST(MvdrTest, RemembersFramesThatItDidNotSeparate) {
  support::Generator random(3);
  const std::vector<float> w = Audio::makeWindow(Audio::WindowType::Hann, 16);
  const ImpulseResponses h = randomResponses(random, 2, 3, 40);
  Mvdr engine(SpatialCovariance(h, w, {3, 2, 4}), RATE, 0, 1e-4);
  engine.updateSources(h.positions);
  for (int recording = 0; recording < 2; ++recording) {
    std::vector<Matrix> frames(4, Matrix(3, 9));  // what was before the recording
    for (int f = 0; f < 12; ++f) {
      frames.push_back(random.gaussian(3, 9));
      if (f % 3 == 1) {
        engine.hear(frames.back());
        continue;
      }
      Matrix Y;
      engine.executeBeamForming(frames.back(), Y);
      for (int k = 0; k < 9; ++k) {
        Matrix x(9, 1);
        for (int i = 0; i < 9; ++i) {
          const Matrix& frame = frames[frames.size() - 1 - static_cast<std::size_t>(i / 3 * 2)];
          x.setElementAt(i, 0, frame.getElementAt(i % 3, k));
        }
        const Matrix expected = engine.separationMatrices[static_cast<std::size_t>(k)] * x;
        EXPECT_THAT(Y.getColumn(k), MatrixNear(expected, 1e-9 * normOf(expected))) << f;
      }
    }
    engine.startOver();
  }
  Matrix Y;
  EXPECT_THROW(engine.executeBeamForming(Matrix(3, 8), Y), BF::MatrixSizeMismatchException);
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
