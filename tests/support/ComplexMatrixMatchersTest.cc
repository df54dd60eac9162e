// The matchers that other tests rely on tell matrices apart.

#include "tests/support/ComplexMatrixMatchers.h"

#include <gtest/gtest.h>

#include "tests/support/MatrixGenerators.h"

namespace {

using support::IsFinite;
using support::MatricesEq;
using support::MatrixNear;
using support::matrixOf;
using testing::Not;

TEST(ComplexMatrixMatchers, CompareShapesElementsAndLengthsAndNeverMatchNaN) {
  constexpr double INFINITE = std::numeric_limits<double>::infinity();
  const BF::Matrix matrix = matrixOf({{1.0, {2.0, -3.0}}, {0.0, {0.0, 4.0}}});
  BF::Matrix near = matrix;
  near.setElementAt(1, 0, 3e-5, 4e-5);  // off by 5e-5
  EXPECT_THAT(near, MatrixNear(matrix, 5.1e-5));
  EXPECT_THAT(near, Not(MatrixNear(matrix, 4.9e-5)));
  EXPECT_THAT(BF::Matrix(0, 3), Not(MatrixNear(BF::Matrix(3, 0), INFINITE)));
  EXPECT_THAT((std::vector{matrix, near}), MatricesEq({matrix, near}));
  EXPECT_THAT((std::vector{matrix, near}), Not(MatricesEq({near, matrix})));
  EXPECT_THAT((std::vector{matrix, near}), Not(MatricesEq({matrix})));

  const BF::Matrix nan = matrixOf({{{0.0, std::numeric_limits<double>::quiet_NaN()}}});
  EXPECT_THAT(nan, Not(MatrixNear(nan, INFINITE)));
  EXPECT_THAT(matrixOf({{0.0}}), Not(MatrixNear(nan, INFINITE)));
  EXPECT_THAT(nan, Not(IsFinite()));
  EXPECT_THAT(matrixOf({{1.0, INFINITE}}), Not(IsFinite()));
  EXPECT_THAT(matrixOf({{1.0, 1e308}}), IsFinite());
}

}  // namespace
