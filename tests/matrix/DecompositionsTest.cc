#include <cmath>
#include <functional>
#include <limits>

#include "matrix/Matrix.h"
#include "tests/support/ComplexMatrixMatchers.h"
#include "tests/support/MatrixGenerators.h"

namespace {

using BF::Matrix;
using testing::Not;

/// The sweeps of the singular-value kernel leave off-diagonal elements up to 1.5e-7 of the largest
/// one: A = U · S · Vᴴ holds to that, times √n for the n that may be left at once.
constexpr double SPLIT = 1.5e-7;

Matrix diagonal(const Matrix& S, int rows, int columns) {
  Matrix D(rows, columns);
  for (int i = 0; i < std::min(rows, columns); ++i) D.setElementAt(i, i, S.getElementAt(i, 0));
  return D;
}

void expectUnitary(const Matrix& Q) {
  const int n = Q.getRowCount();
  EXPECT_THAT(Q * Q.transposed(true), IsNear(Matrix::I(n), 100 * ROUNDING));
}

/// U and V unitary, S real, non-negative and decreasing, A = U · S · Vᴴ to accuracy · ‖A‖.
void expectSingularValueLaws(const Matrix& A, double accuracy) {
  const int m = A.getRowCount();
  const int n = A.getColumnCount();
  Matrix U(1, 7);  // whatever shape stands in the outputs is replaced
  Matrix S;
  Matrix V;
  A.singularValueDecomposition(U, S, V);
  ASSERT_EQ(U.getRowCount(), m);
  ASSERT_EQ(V.getRowCount(), n);
  ASSERT_EQ(S.getRowCount(), std::max(m, n));
  expectUnitary(U);
  expectUnitary(V);
  for (int i = 0; i < S.getRowCount(); ++i) {
    EXPECT_EQ(S.getElementAt(i, 0).imag(), 0.0);
    EXPECT_GE(S.getElementAt(i, 0).real(), 0.0);
    const double previous = i > 0 ? S.getElementAt(i - 1, 0).real() : HUGE_VAL;
    EXPECT_GE(previous, S.getElementAt(i, 0).real());
    EXPECT_LE(S.getElementAt(i, 0).real(), i < std::min(m, n) ? HUGE_VAL : 0.0);
  }
  EXPECT_THAT(U * diagonal(S, m, n) * V.transposed(true), IsNear(A, accuracy * sizeOf(A) + 4e-16));
}

/// A·X·A = A, X·A·X = X, A·X and X·A Hermitian, for X = pinv(A), at the condition of A.
void expectPenroseConditions(const Matrix& A) {
  const Matrix X = A.pseudoInverse();
  ASSERT_EQ(X.getRowCount(), A.getColumnCount());
  ASSERT_EQ(X.getColumnCount(), A.getRowCount());
  const double accuracy = 10 * SPLIT * (1.0 + sizeOf(A) * sizeOf(X));
  EXPECT_THAT(A * X * A, IsNear(A, accuracy * (1e-300 + sizeOf(A))));
  EXPECT_THAT(X * A * X, IsNear(X, accuracy * (1e-300 + sizeOf(X))));
  EXPECT_THAT((A * X).transposed(true), IsNear(A * X, accuracy));
  EXPECT_THAT((X * A).transposed(true), IsNear(X * A, accuracy));
}

TEST(Decompositions, SingularValueAndPenroseLawsOverRandomShapes) {
  MatrixGenerator make(1);
  for (int round = 0; round < 400; ++round) {
    const int most = round % 40 == 0 ? 64 : 12;
    const int m = make.integer(0, most);
    const int n = make.integer(0, most);
    SCOPED_TRACE(testing::Message() << "round " << round << ", " << m << " x " << n);
    const Matrix A = round % 2
                         ? make.matrix(m, n)
                         : make.withSingularValues(m, n, make.degenerateSpectrum(std::min(m, n)));
    expectSingularValueLaws(A, 2 * std::sqrt(std::min(m, n)) * SPLIT);
    if (most < 64) expectPenroseConditions(A);
  }
}

TEST(Decompositions, SingularValuesOfConstructedMatricesComeBack) {
  MatrixGenerator make(2);
  for (int round = 0; round < 100; ++round) {
    const int n = make.integer(1, 10);
    const int m = n + make.integer(0, 5);
    std::vector<double> values;
    for (int i = 0; i < n; ++i) values.push_back(std::abs(make.gaussian()));
    std::sort(values.rbegin(), values.rend());
    const Matrix A = make.withSingularValues(m, n, values);
    Matrix U;
    Matrix S;
    Matrix V;
    (round % 2 ? A : A.transposed(true)).singularValueDecomposition(U, S, V);
    for (int i = 0; i < n; ++i) {
      EXPECT_NEAR(S.getElementAt(i, 0).real(), values[i], 10 * SPLIT * values[0]);
    }
  }
}

TEST(Decompositions, BadlyScaledMatrices) {
  MatrixGenerator make(3);
  for (const double scale : {1e150, 1e100, 1e5, 1e-5, 1e-12}) {
    expectSingularValueLaws(make.matrix(6, 4, scale), 4 * SPLIT);
    expectSingularValueLaws(make.matrix(4, 6, scale), 4 * SPLIT);
  }
  // Columns whose squared norm is below 1.5e-31 count as zero.
  Matrix U;
  Matrix S;
  Matrix V;
  make.matrix(5, 3, 1e-150).singularValueDecomposition(U, S, V);
  EXPECT_THAT(S, IsExactly(Matrix(5, 1)));
  expectUnitary(U);
  expectUnitary(V);
  for (const double scale : {1e150, 1e-150}) {
    Matrix A = make.hermitian({3.0, 1.0, 1.0, 0.0, -2.0}) * std::complex<double>(scale, 0.0);
    Matrix d;
    A.eigenValues(d, V);
    EXPECT_THAT(A * V, IsNear(V * d.diagonalMatrix(), ROUNDING * scale));
    expectUnitary(V);
  }
}

TEST(Decompositions, EigenLawsOverRandomAndDegenerateSpectra) {
  MatrixGenerator make(4);
  for (int round = 0; round < 300; ++round) {
    const int n = make.integer(0, round % 30 == 0 ? 64 : 12);
    SCOPED_TRACE(testing::Message() << "round " << round << ", n = " << n);
    std::vector<double> spectrum = make.degenerateSpectrum(n);
    if (round % 2) {
      for (double& value : spectrum) value = make.gaussian().real();
    }
    const Matrix A = make.hermitian(spectrum);
    Matrix d;
    Matrix V;
    A.eigenValues(d, V);
    const double accuracy = 10 * ROUNDING * (1e-300 + sizeOf(A));
    EXPECT_THAT(A * V, IsNear(V * d.diagonalMatrix(), accuracy));
    expectUnitary(V);
    std::vector<double> found;
    for (int i = 0; i < n; ++i) found.push_back(d.getElementAt(i, 0).real());
    std::sort(found.begin(), found.end());
    std::sort(spectrum.begin(), spectrum.end());
    for (int i = 0; i < n; ++i) EXPECT_NEAR(found[i], spectrum[i], accuracy);

    // Only the upper triangle is read.
    Matrix upper(A);
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j < i; ++j) upper.setElementAt(i, j, 99.0, 99.0);
    }
    Matrix e;
    Matrix W;
    upper.eigenValues(e, W);
    EXPECT_THAT(e, IsExactly(d));
    EXPECT_THAT(W, IsExactly(V));
  }
}

TEST(Decompositions, DiagonalMatricesKeepTheirOrder) {
  Matrix A(2, 2);
  A.setElementAt(0, 0, 3.0, 0.0);
  A.setElementAt(1, 1, 1.0, 0.0);
  Matrix d;
  Matrix V;
  A.eigenValues(d, V);
  EXPECT_EQ(d.getElementAt(0, 0), 3.0);
  EXPECT_EQ(d.getElementAt(1, 0), 1.0);
  EXPECT_THAT(V, IsExactly(Matrix::I(2)));
}

TEST(Decompositions, GeneralisedEigenvaluesSolveTheirEquation) {
  MatrixGenerator make(5);
  for (int round = 0; round < 200; ++round) {
    const int n = make.integer(1, 10);
    SCOPED_TRACE(testing::Message() << "round " << round << ", n = " << n);
    const Matrix A = make.hermitian(make.degenerateSpectrum(n));
    const Matrix C = make.matrix(n, n);
    const Matrix B = C * C.transposed(true) + Matrix::I(n);  // condition below 1e3
    Matrix d;
    Matrix V;
    A.generalizedEigenValues(B, d, V);
    // B's factor is inverted by way of singular values, which are good to SPLIT.
    EXPECT_THAT(A * V, IsNear(B * V * d.diagonalMatrix(), 1e4 * SPLIT * sizeOf(A)));
    Matrix e;
    Matrix W;
    A.eigenValues(e, W);
    A.generalizedEigenValues(Matrix::I(n), d, V);
    EXPECT_THAT(d, IsNear(e, 100 * ROUNDING * sizeOf(A)));
  }
}

TEST(Decompositions, GeneralisedSingularValuesAreThoseOfTheQuotient) {
  MatrixGenerator make(6);
  const Matrix A = make.matrix(4, 3);
  const Matrix B = make.matrix(4, 4) + Matrix::I(4) * std::complex<double>(4.0, 0.0);
  Matrix U;
  Matrix S;
  Matrix V;
  A.generalizedSingularValues(B, U, S, V);
  EXPECT_THAT(B * U * diagonal(S, 4, 3) * V.transposed(true), IsNear(A, 10 * SPLIT * sizeOf(A)));
  EXPECT_THROW(A.generalizedSingularValues(make.matrix(3, 3), U, S, V),
               BF::MatrixSizeMismatchException);
}

TEST(Decompositions, ShapesThatDoNotFitThrow) {
  MatrixGenerator make(7);
  Matrix d;
  Matrix V;
  EXPECT_THROW(make.matrix(2, 3).eigenValues(d, V), BF::NotSquareMatrixException);
  EXPECT_THROW(Matrix::I(2).generalizedEigenValues(make.matrix(2, 3), d, V),
               BF::NotSquareMatrixException);
  EXPECT_THROW(Matrix::I(3).generalizedEigenValues(Matrix::I(2), d, V),
               BF::MatrixSizeMismatchException);
}

TEST(Decompositions, WhatIsNotFiniteEndsAndStaysNotFinite) {
  for (const double bad :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), 1e200}) {
    for (const auto& [m, n] :
         {std::pair(5, 3), std::pair(3, 5), std::pair(4, 4), std::pair(1, 1)}) {
      MatrixGenerator make(8);
      Matrix A = make.matrix(m, n);
      A.setElementAt(m - 1, n - 1, bad, 0.0);
      Matrix U;
      Matrix S;
      Matrix V;
      A.singularValueDecomposition(U, S, V);
      EXPECT_THAT(S, Not(IsFinite()));
      A.pseudoInverse();
      if (m == n) A.eigenValues(S, V);
    }
  }
}

TEST(Decompositions, InverseEliminatesWithoutPivotingUnlessThePivotIsZero) {
  MatrixGenerator make(9);
  for (int round = 0; round < 100; ++round) {
    const int n = make.integer(0, 8);
    // Dominant diagonals keep the elimination stable without pivoting.
    const Matrix A = make.matrix(n, n) + Matrix::I(n) * std::complex<double>(3.0 * n, 0.0);
    EXPECT_THAT(A * A.Inverse(), IsNear(Matrix::I(n), ROUNDING));
  }
  Matrix exchange(2, 2);
  exchange.setElementAt(0, 1, 1.0, 0.0);
  exchange.setElementAt(1, 0, 1.0, 0.0);
  testing::internal::CaptureStdout();
  EXPECT_THAT(exchange.Inverse(), IsExactly(exchange));
  Matrix tinyPivot(exchange);
  tinyPivot.setElementAt(0, 0, 1e-300, 0.0);
  tinyPivot.setElementAt(1, 1, 1.0, 0.0);
  EXPECT_THAT(tinyPivot.Inverse(), Not(IsFinite()));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(Decompositions, InverseReportsOnStandardOutput) {
  testing::internal::CaptureStdout();
  EXPECT_THAT(MatrixGenerator(10).matrix(2, 3).Inverse(), IsExactly(Matrix(2, 3)));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error : Inverse : Not a square matrix.\n");
  Matrix singular(2, 2);
  singular.setElementAt(0, 0, 1.0, 0.0);
  singular.setElementAt(0, 1, 2.0, 0.0);
  singular.setElementAt(1, 0, 2.0, 0.0);
  singular.setElementAt(1, 1, 4.0, 0.0);
  testing::internal::CaptureStdout();
  EXPECT_THAT(singular.Inverse(), Not(IsFinite()));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "ERROR!!No inverse matrix available.\n");
}

TEST(Decompositions, PseudoInverseTakesSingularValuesAboveTheThreshold) {
  Matrix row(1, 3);
  row.setElementAt(0, 0, 3.0, 0.0);
  row.setElementAt(0, 2, 4.0, 0.0);
  Matrix expected(3, 1);
  expected.setElementAt(0, 0, 0.12, 0.0);
  expected.setElementAt(2, 0, 0.16, 0.0);
  EXPECT_THAT(row.pseudoInverse(), IsNear(expected, ROUNDING));
  EXPECT_THAT(Matrix(2, 3).pseudoInverse(), IsExactly(Matrix(3, 2)));
  EXPECT_THAT((Matrix::I(2) * std::complex<double>(1e-10, 0.0)).pseudoInverse(),
              IsExactly(Matrix(2, 2)));
  EXPECT_THAT((Matrix::I(2) * std::complex<double>(2e-10, 0.0)).pseudoInverse(),
              IsNear(Matrix::I(2) * std::complex<double>(5e9, 0.0), 1e-3));
}

}  // namespace
