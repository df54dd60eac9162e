#include "bf/Fixed.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/reference/Beamformers.h"
#include "tests/support/ComplexMatrixMatchers.h"
#include "tests/support/Databases.h"

namespace {

using BF::Matrix;
using namespace reference;
using namespace support;

/// The four fixed beamformers for numFreq bins, in the order of their numbers.
std::vector<std::unique_ptr<BF::Fixed>> everyMethod(int numFreq) {
  std::vector<std::unique_ptr<BF::Fixed>> result;
  result.push_back(std::make_unique<BF::DS>(numFreq, 16000, 343.0));
  result.push_back(std::make_unique<BF::WDS>(numFreq, 16000, 343.0));
  result.push_back(std::make_unique<BF::Null>(numFreq, 16000, 343.0));
  result.push_back(std::make_unique<BF::ILSE>(numFreq, 16000, 343.0));
  return result;
}

Dense oracle(int method, const Dense& A) {
  switch (method) {
    case BF::BF_ALGORITHM_DS:
      return reference::delayAndSum(A);
    case BF::BF_ALGORITHM_WDS:
      return reference::matchedFilters(A);
    case BF::BF_ALGORITHM_NULL:
      return reference::fullRankPseudoInverse(A);
    default:
      return reference::leastSquaresNulls(A);
  }
}

/// By how much W may differ from the oracle's. DS and WDS meet no matrix that needs a QR sweep.
/// NULL and the nulls of ILSE go through a pseudo-inverse X, whose error is at most 2 · ‖X‖² · ‖E‖
/// to first order for an error ‖E‖ ≤ δ · ‖A‖ of the decomposition. In ILSE X is that of G = Bᵀ ·
/// V_null, no larger than A⁺, and meets Bᵀ · h, at most ‖A‖ · ‖W‖.
double tolerance(int method, const Dense& A, const Dense& W) {
  const double inverse = frobenius(reference::fullRankPseudoInverse(A));
  const double error = 2 * inverse * inverse * svdAccuracy(A.rows, A.columns) * frobenius(A);
  if (method == BF::BF_ALGORITHM_NULL) return error;
  if (method == BF::BF_ALGORITHM_ILSE) return error * frobenius(A) * frobenius(W);
  return ROUNDING * frobenius(W);
}

TEST(Fixed, AgreesWithTheOraclesAndKeepsUnitGain) {
  for (int seed = 0; seed < 150; ++seed) {
    Generator random(seed);
    const int M = random.integer(1, 8);
    const int N = random.integer(1, 10);
    SCOPED_TRACE(testing::Message() << "seed " << seed << ": " << M << " mics, " << N);
    const auto database = randomDatabase(random, M, 12, 3);
    const std::vector<SceneSource> scene = distinctSources(random, N, 12);
    const std::vector<Dense> A = steeringOf(scene, database);
    for (const auto& engine : everyMethod(3)) {
      const int method = engine->getBfAlgorithmType();
      SCOPED_TRACE(testing::Message() << "method " << method);
      engine->setTransformFunctionDatabase(database);
      engine->updateSources(locationsOf(scene, database));
      ASSERT_EQ(engine->separationMatrices.size(), 3u);
      for (int k = 0; k < 3; ++k) {
        const Matrix& W = engine->separationMatrices[k];
        EXPECT_THAT(engine->transferFunctions[k], MatrixEq(toMatrix(A[k])));
        const Dense expected = oracle(method, A[k]);
        EXPECT_THAT(W, MatrixNear(toMatrix(expected), tolerance(method, A[k], expected)));
        const Dense gains = fromMatrix(W) * A[k];
        if (method == BF::BF_ALGORITHM_NULL) {
          if (N > M) continue;
          EXPECT_LE(frobenius(gains - reference::identity(N)),
                    svdAccuracy(M, N) * frobenius(W) * frobenius(A[k]));
        }
        for (int n = 0; n < N && method != BF::BF_ALGORITHM_NULL; ++n) {
          EXPECT_NEAR(std::abs(gains(n, n) - reference::Real(1)), 0.0,
                      ROUNDING * (1.0 + frobenius(W) * frobenius(A[k])));
        }
      }
    }
  }
}

TEST(Fixed, GivesTheDocumentedRows) {
  Generator random(1);
  auto database = randomDatabase(random, 2, 2, 1);
  database.transferFunctions[0] = matrixOf({{1.0, 0.0}, {{0.0, 1.0}, 0.0}});
  const std::vector<SceneSource> usual{{1, 0}};
  const std::vector<SceneSource> silent{{1, 1}};
  for (const auto& engine : everyMethod(1)) {
    SCOPED_TRACE(testing::Message() << "method " << engine->getBfAlgorithmType());
    engine->setTransformFunctionDatabase(database);
    engine->updateSources(locationsOf(usual, database));
    EXPECT_THAT(engine->separationMatrices[0],
                MatrixNear(matrixOf({{0.5, {0.0, -0.5}}}), ROUNDING));
    engine->updateSources(locationsOf(silent, database));
    EXPECT_THAT(engine->separationMatrices[0], MatrixEq(Matrix(1, 2))) << "zero column";
  }
}

TEST(Fixed, GuardsTinyMagnitudes) {
  // |a_i| · Σ|a| below 1e-10: a_i / (|a_i| · Σ|a| + 1e-10), element by element.
  Generator random(1);
  auto database = randomDatabase(random, 2, 1, 1);
  database.transferFunctions[0] = matrixOf({{{0.0, 1.0}}, {1e-11}});
  BF::DS engine(1, 16000, 343.0);
  engine.setTransformFunctionDatabase(database);
  engine.updateSources(locationsOf({{1, 0}}, database));
  const double sum = 1.0 + 1e-11;
  EXPECT_THAT(engine.separationMatrices[0],
              MatrixNear(matrixOf({{{0.0, -1.0 / sum}, 1e-11 / (1e-11 * sum + 1e-10)}}), ROUNDING));
}

TEST(Fixed, HandlesEqualColumnsAndNoSources) {
  Generator random(1);
  const auto database = randomDatabase(random, 4, 5, 2);
  for (const auto& engine : everyMethod(2)) {
    SCOPED_TRACE(testing::Message() << "method " << engine->getBfAlgorithmType());
    engine->setTransformFunctionDatabase(database);
    engine->updateSources(locationsOf({{1, 3}, {2, 3}}, database));
    const Dense A = fromMatrix(engine->transferFunctions[1]);
    EXPECT_THAT(engine->transferFunctions[1].getColumn(0),
                MatrixEq(engine->transferFunctions[1].getColumn(1)));
    const Dense gains = fromMatrix(engine->separationMatrices[1]) * A;
    const bool shared = engine->getBfAlgorithmType() == BF::BF_ALGORITHM_NULL;
    // A pseudo-inverse shares the gain between columns that it cannot tell apart.
    EXPECT_NEAR(std::abs(gains(0, 0) - reference::Real(shared ? 0.5 : 1.0)), 0.0,
                svdAccuracy(4, 2));

    engine->updateSources({});
    EXPECT_TRUE(engine->sources.empty());
    EXPECT_THAT(engine->transferFunctions, MatricesEq({Matrix(4, 0), Matrix(4, 0)}));
    EXPECT_THAT(engine->separationMatrices, MatricesEq({Matrix(0, 4), Matrix(0, 4)}));
    Matrix output(1, 1);
    engine->executeBeamForming(Matrix(4, 2), output);
    EXPECT_THAT(output, MatrixEq(Matrix(0, 2)));
  }
}

TEST(Engine, AppliesItsMatricesBinByBin) {
  Generator random(1);
  BF::WDS engine(4, 16000, 343.0);
  Dense expected(2, 4);
  const Matrix input = random.gaussian(3, 4);
  for (int k = 0; k < 4; ++k) {
    engine.separationMatrices.push_back(random.gaussian(2, 3));
    const Dense y = fromMatrix(engine.separationMatrices[k]) * column(fromMatrix(input), k);
    for (int n = 0; n < 2; ++n) expected(n, k) = y(n, 0);
  }
  Matrix output;
  engine.executeBeamForming(input, output);
  EXPECT_THAT(output, MatrixNear(toMatrix(expected), ROUNDING * frobenius(expected)));
  EXPECT_THAT(engine.inputSpectrum, MatrixEq(input));
  EXPECT_THAT(engine.outputSpectrum, MatrixEq(output));

  // The output argument may be the input itself.
  engine.separationMatrices.assign(4, Matrix::I(3));
  Matrix both = input;
  engine.executeBeamForming(both, both);
  EXPECT_THAT(both, MatrixEq(input));
  EXPECT_THAT(engine.inputSpectrum, MatrixEq(input));
}

TEST(Engine, RefusesToRunBeforeItIsSetUp) {
  BF::WDS engine(2, 16000, 343.0);
  std::vector<Matrix> A;
  EXPECT_THROW(engine.getTransformFunctions({}, A), BF::InvalidStateException);
  Matrix output = matrixOf({{7.0}});
  EXPECT_THROW(engine.executeBeamForming(Matrix(3, 2), output), BF::InvalidStateException);
  EXPECT_THAT(output, MatrixEq(matrixOf({{7.0}})));
}

TEST(Engine, KeepsItsOwnCopyOfTheDatabase) {
  Generator random(1);
  auto database = randomDatabase(random, 3, 4, 2);
  const auto original = database;
  BF::WDS engine(2, 16000, 343.0);
  EXPECT_EQ(engine.tfDatabase, nullptr);
  engine.setTransformFunctionDatabase(database);
  database.transferFunctions[0] = Matrix(3, 4);
  std::vector<Matrix> A(7);
  engine.getTransformFunctions(locationsOf({{5, 2}, {5, 0}}, database), A);
  ASSERT_EQ(A.size(), 2u);
  for (int k = 0; k < 2; ++k) {
    EXPECT_THAT(A[k].getColumn(0), MatrixEq(original.transferFunctions[k].getColumn(2)));
    EXPECT_THAT(A[k].getColumn(1), MatrixEq(original.transferFunctions[k].getColumn(0)));
  }

  // Replaced by a database of another shape: matrices already built stay until the next update.
  engine.updateSources(locationsOf({{5, 2}}, database));
  const std::vector<Matrix> W = engine.separationMatrices;
  engine.setTransformFunctionDatabase(randomDatabase(random, 5, 4, 2));
  EXPECT_THAT(engine.separationMatrices, MatricesEq(W));
  engine.updateSources(locationsOf({{5, 2}}, database));
  EXPECT_EQ(engine.separationMatrices[0].getColumnCount(), 5);
}

}  // namespace
