#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "bf/CML.h"
#include "bf/CMSNR.h"
#include "tests/reference/Beamformers.h"
#include "tests/support/ComplexMatrixMatchers.h"
#include "tests/support/Databases.h"

namespace {

using BF::Matrix;
using namespace reference;
using namespace support;

constexpr int BINS = 3;

// ---- maximum likelihood

/// The engine's filters are those of its noise matrices, regFactor and the scene.
void expectMinimumVariance(const BF::CML& engine, const std::vector<Dense>& A) {
  for (int k = 0; k < BINS; ++k) {
    const Dense R = fromMatrix(engine.noiseCorrelationMatrices[k]);
    const int M = R.rows;
    const Dense expected = reference::minimumVariance(A[k], R, engine.regFactor, k);
    const Dense regular = R + Complex(engine.regFactor * frobenius(R)) * reference::identity(M);
    const double condition =
        frobenius(regular) * frobenius(reference::solve(regular, reference::identity(M)));
    // The inverse Q is off by 2·‖Q‖²·δ·‖R‖, and aᴴ·Q·a ≥ 1/‖R‖: w by 2·δ·κ²·(1 + ‖w‖).
    const double error = 2 * svdAccuracy(M, M) * condition * condition * (1 + frobenius(expected));
    ASSERT_THAT(engine.separationMatrices[k], MatrixNear(toMatrix(expected), error));
    // Whatever the error of Q, the division by aᴴ·Q·a leaves the gain exact.
    const Dense gains = fromMatrix(engine.separationMatrices[k]) * A[k];
    for (int j = 0; j < gains.rows; ++j) {
      const Complex gain = gains(j, j) / Complex(frobenius(column(A[k], j)));
      EXPECT_NEAR(std::abs(gain - Complex(k % 2 == 0 ? 1 : -1)), 0.0, ROUNDING * condition);
    }
  }
}

TEST(Cml, IsTheMinimumVarianceFilterWithUnitResponse) {
  for (int seed = 0; seed < 80; ++seed) {
    Generator random(seed);
    const int M = random.integer(1, 8);
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", " << M << " mics");
    const auto database = randomDatabase(random, M, 9, BINS);
    auto scene = support::distinctSources(random, random.integer(0, 9), 9);
    BF::CML engine(BINS, 16000, 343.0, 0.0);
    engine.setTransformFunctionDatabase(database);
    engine.noiseCorrelationMatrices.resize(BINS);
    // Frame by frame some of the noise matrices, the scene and the factor change, in any mixture.
    for (int frame = 0; frame < 6; ++frame) {
      for (Matrix& R : engine.noiseCorrelationMatrices) {
        if (frame > 0 && random.chance(0.5)) continue;
        const double scale = std::pow(10.0, random.uniform(-2.0, 2.0));
        R = random.hermitian(spectrumOf(Spectrum::GRADED, M, 0.03)) * scale;
      }
      if (random.chance(0.3)) scene = support::distinctSources(random, random.integer(0, 9), 9);
      if (random.chance(0.3)) engine.regFactor = std::pow(10.0, random.uniform(-3.0, 1.0));
      engine.updateSources(locationsOf(scene, database));
      const std::vector<Matrix> before = engine.separationMatrices;
      engine.adaptSeparationMatrices();
      EXPECT_THAT(engine.separationMatrices, MatricesEq(before));
      expectMinimumVariance(engine, steeringOf(scene, database));
    }
  }
}

TEST(Cml, ReplacesVanishingQuantitiesByItsThreshold) {
  Generator random(1);
  auto database = randomDatabase(random, 2, 3, BINS);
  for (Matrix& H : database.transferFunctions) {
    H = matrixOf({{{0.0, 2.0}, 1e-11, 0.0}, {0.0, 0.0, 0.0}});
  }
  const auto sources = locationsOf({{1, 0}, {2, 1}, {3, 2}}, database);
  BF::CML engine(BINS, 16000, 343.0, 0.0);
  engine.setTransformFunctionDatabase(database);

  // Before there is any noise the matrices are zero, and so are the filters.
  engine.noiseCorrelationMatrices.assign(BINS, Matrix(2, 2));
  engine.updateSources(sources);
  EXPECT_THAT(engine.separationMatrices, MatricesEq({BINS, Matrix(3, 2)}));

  // ‖a‖ = 1e-11 is divided by 1e-10, so that aᴴ·Q·a = 0.01; a zero column gives a zero row.
  engine.noiseCorrelationMatrices.assign(BINS, Matrix::I(2));
  engine.updateSources(sources);
  const Matrix expected = matrixOf({{{0.0, -1.0}, 0.0}, {10.0, 0.0}, {0.0, 0.0}});
  const Matrix negated = expected * -1.0;
  EXPECT_THAT(engine.separationMatrices,
              MatricesNear({expected, negated, expected}, ROUNDING * 10));

  // aᴴ·Q·a = 1e-12 counts as 1e-10.
  engine.noiseCorrelationMatrices.assign(BINS, Matrix::I(2) * 1e12);
  engine.updateSources(sources);
  EXPECT_THAT(engine.separationMatrices[0].getRow(0),
              MatrixNear(matrixOf({{{0.0, -0.01}, 0.0}}), ROUNDING));
}

// ---- maximum signal-to-noise ratio

/// What is averaged for one source in one bin.
struct Correlations {
  int id;
  Dense signal;
  Dense noise;
};

using Bins = std::vector<std::vector<Correlations>>;

/// The correlations of a new list: those of the first previous source with the same id, or I.
Bins carriedOver(const Bins& old, const std::vector<SceneSource>& scene, int M) {
  Bins next(BINS);
  for (int k = 0; k < BINS; ++k) {
    for (const SceneSource& source : scene) {
      Correlations own{source.id, reference::identity(M), reference::identity(M)};
      for (auto c = old[k].rbegin(); c != old[k].rend(); ++c) {
        if (c->id == source.id) own = *c;
      }
      next[k].push_back(own);
    }
  }
  return next;
}

/// w is the row of a pair: with the raw vector v = wᴴ / ‖w‖², whose norm w inverts,
///   GEVD: v maximises vᴴ·A·v / vᴴ·B·v, and vᴴ·B·v = 1;
///   GSVD: v is a unit vector and maximises ‖Gᴴ·v‖, G = B⁻¹·A.
void expectBestFilter(const Dense& w, const Correlations& pair, bool gevd, Generator& random) {
  const Dense& A = pair.signal;
  const Dense& B = pair.noise;
  const Dense v = Complex(1 / reference::squaredNorm(w)) * adjoint(w);
  const Dense G = reference::solve(B, A);
  const int M = B.rows;
  const double condition = frobenius(B) * frobenius(reference::solve(B, reference::identity(M)));
  // B = Rᴴ·R is inverted through the singular values of R: R·R⁻¹ = I + F, ‖F‖ ≤ δ·κ(R) = δ·√κ(B),
  // which moves both the quotient and vᴴ·B·v by 2‖F‖ to first order. G is decomposed directly, but
  // its inverse B⁻¹ carries rounding of size κ(B).
  const double error = 4 * svdAccuracy(M, M) * std::sqrt(condition) + ROUNDING * condition;
  const auto gain = [&](const Dense& u) {
    return gevd ? reference::quotient(u, A, B) : frobenius(adjoint(G) * u) / frobenius(u);
  };
  EXPECT_NEAR(gevd ? (adjoint(v) * B * v)(0, 0).real() : reference::squaredNorm(v), 1.0, error);
  EXPECT_GE(gain(v), gain(reference::dominantVector(gevd ? G : G * adjoint(G))) * (1 - error));
  for (int i = 0; i < 5; ++i) {
    EXPECT_GE(gain(v), gain(fromMatrix(random.gaussian(M, 1))) * (1 - error));
  }
}

TEST(Cmsnr, MaximisesTheRatioOfItsAverages) {
  for (int seed = 0; seed < 30; ++seed) {
    for (const std::string algorithm : {"GEVD", "GSVD"}) {
      Generator random(seed);
      const int M = random.integer(1, 5);
      SCOPED_TRACE(testing::Message() << algorithm << ", seed " << seed << ", " << M << " mics");
      const double alpha = seed == 0 ? 1.0 : random.uniform(0.7, 0.99);
      BF::CMSNR engine(BINS, 16000, 343.0, algorithm, alpha);
      engine.numMic = M;
      const auto database = randomDatabase(random, M, 9, BINS);  // for locations only
      std::vector<SceneSource> scene;
      Bins oracle(BINS);
      for (int frame = 0; frame < 40; ++frame) {
        if (frame == 0 || random.chance(0.4)) support::changeScene(random, 4, 9, scene);
        const int N = static_cast<int>(scene.size());
        engine.updateSources(locationsOf(scene, database));
        oracle = carriedOver(oracle, scene, M);
        const Matrix X = random.gaussian(M, BINS) * (random.chance(0.1) ? 0.0 : 1.0);
        Matrix Y;
        engine.executeBeamForming(X, Y);
        engine.adaptSeparationMatrices();
        ASSERT_EQ(engine.signalCorrelations.size(), static_cast<std::size_t>(BINS * N));
        ASSERT_EQ(engine.noiseCorrelations.size(), static_cast<std::size_t>(BINS * N));
        for (int k = 0; k < BINS; ++k) {
          const Dense x = column(fromMatrix(X), k);
          for (int s = 0; s < N; ++s) {
            Correlations& own = oracle[k][s];
            Dense& moved = scene[s].target ? own.signal : own.noise;
            moved = Complex(1 - alpha) * (x * adjoint(x)) + Complex(alpha) * moved;
            ASSERT_THAT(engine.signalCorrelations[k * N + s],
                        MatrixNear(toMatrix(own.signal), ROUNDING * frobenius(own.signal)));
            ASSERT_THAT(engine.noiseCorrelations[k * N + s],
                        MatrixNear(toMatrix(own.noise), ROUNDING * frobenius(own.noise)));
            const Matrix row = engine.separationMatrices[k].getRow(s);
            expectBestFilter(fromMatrix(row), own, algorithm == "GEVD", random);
          }
          ASSERT_EQ(engine.separationMatrices[k].getRowCount(), N);
        }
      }
    }
  }
}

TEST(Cmsnr, StartsUniformAndCarriesOverById) {
  Generator random(2);
  const auto database = randomDatabase(random, 4, 9, BINS);
  BF::CMSNR engine(BINS, 16000, 343.0, "GEVD", 0.9);
  engine.numMic = 4;
  engine.updateSources(locationsOf({{1, 0}, {2, 4, false}}, database));
  EXPECT_THAT(engine.separationMatrices,
              MatricesEq({BINS, matrixOf({{0.5, 0.5, 0.5, 0.5}, {0.5, 0.5, 0.5, 0.5}})}));
  EXPECT_THAT(engine.signalCorrelations, MatricesEq({2 * BINS, Matrix::I(4)}));
  EXPECT_THAT(engine.noiseCorrelations, MatricesEq({2 * BINS, Matrix::I(4)}));
  Matrix output;
  engine.executeBeamForming(random.gaussian(4, BINS), output);
  engine.adaptSeparationMatrices();

  // Id 2 turns from noise to target and moves to row 0; 1 leaves, 3 is new.
  const auto W = engine.separationMatrices;
  const auto noise = engine.noiseCorrelations;
  engine.updateSources(locationsOf({{2, 4}, {3, 1}}, database));
  for (int k = 0; k < BINS; ++k) {
    EXPECT_THAT(engine.separationMatrices[k].getRow(0), MatrixEq(W[k].getRow(1)));
    EXPECT_THAT(engine.noiseCorrelations[k * 2], MatrixEq(noise[k * 2 + 1]));
    EXPECT_THAT(engine.noiseCorrelations[k * 2 + 1], MatrixEq(Matrix::I(4)));
  }
  engine.updateSources(locationsOf({{1, 0}}, database));
  EXPECT_THAT(engine.signalCorrelations, MatricesEq({BINS, Matrix::I(4)})) << "state came back";
}

TEST(Cmsnr, RefusesUnknownDecompositions) {
  for (const std::string keyword : {"", "gevd", "GEVD ", "SVD"}) {
    EXPECT_THROW(BF::CMSNR(BINS, 16000, 343.0, keyword, 0.9), BF::InvalidStateException) << keyword;
  }
}

}  // namespace
