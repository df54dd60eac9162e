#include "tests/support/ComplexMatrixMatchers.h"

#include <gtest/gtest.h>

#include "tests/support/MatrixGenerators.h"

namespace {

using support::IsFinite;
using support::MatricesEq;
using support::MatrixEq;
using support::MatrixNear;
using support::matrixOf;
using testing::Not;

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr double INFINITE = std::numeric_limits<double>::infinity();

template <class M>
std::string explanation(const M& matcher, const BF::Matrix& matrix) {
  testing::StringMatchResultListener listener;
  EXPECT_FALSE(testing::ExplainMatchResult(matcher, matrix, &listener));
  return listener.str();
}

TEST(ComplexMatrixMatchers, CompareWithinTheTolerance) {
  const BF::Matrix matrix = matrixOf({{1.0, {2.0, -3.0}}, {0.0, {0.0, 4.0}}});
  BF::Matrix near = matrix;
  near.setElementAt(1, 0, 3e-5, 4e-5);  // off by 5e-5

  EXPECT_THAT(matrix, MatrixEq(matrix));
  EXPECT_THAT(near, Not(MatrixEq(matrix)));
  EXPECT_THAT(near, MatrixNear(matrix, 5.1e-5));
  EXPECT_THAT(near, Not(MatrixNear(matrix, 4.9e-5)));
  EXPECT_THAT(BF::Matrix(), MatrixEq(BF::Matrix()));
}

TEST(ComplexMatrixMatchers, ReportTheShapeBeforeTheElements) {
  const BF::Matrix row = matrixOf({{1.0, 2.0}});
  EXPECT_EQ(explanation(MatrixEq(row), row.transposed(false)), "whose shape is 2 x 1, not 1 x 2");
  EXPECT_THAT(BF::Matrix(0, 3), Not(MatrixEq(BF::Matrix(3, 0))));
}

TEST(ComplexMatrixMatchers, ReportTheFirstElementThatDiffers) {
  const BF::Matrix expected = matrixOf({{1.0, 2.0}, {3.0, 4.0}});
  const BF::Matrix matrix = matrixOf({{1.0, 2.0}, {{3.0, 1.0}, 9.0}});
  EXPECT_EQ(explanation(MatrixNear(expected, 0.5), matrix),
            "which differs first at (1, 0): (3,1), not (3,0), off by 1");
}

TEST(ComplexMatrixMatchers, NeverMatchNaN) {
  const BF::Matrix nan = matrixOf({{{0.0, NOT_A_NUMBER}}});
  EXPECT_THAT(nan, Not(MatrixNear(nan, INFINITE)));
  EXPECT_THAT(nan, Not(MatrixNear(matrixOf({{0.0}}), INFINITE)));
  EXPECT_THAT(matrixOf({{0.0}}), Not(MatrixNear(nan, INFINITE)));
  EXPECT_THAT(nan, Not(IsFinite()));
  EXPECT_THAT(matrixOf({{1.0, INFINITE}}), Not(IsFinite()));
  EXPECT_THAT(matrixOf({{1.0, 1e308}}), IsFinite());
}

TEST(ComplexMatrixMatchers, CompareListsByLengthAndElement) {
  const BF::Matrix one = matrixOf({{1.0}});
  const BF::Matrix two = matrixOf({{2.0}});
  const std::vector<BF::Matrix> list{one, two};
  EXPECT_THAT(list, MatricesEq({one, two}));
  EXPECT_THAT(list, Not(MatricesEq({two, one})));
  EXPECT_THAT(list, Not(MatricesEq({one})));
}

}  // namespace
