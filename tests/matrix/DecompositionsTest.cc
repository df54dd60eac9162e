#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "matrix/EigenBatch.h"
#include "matrix/InverseBatch.h"
#include "matrix/Matrix.h"
#include "matrix/SvdBatch.h"
#include "tests/support/ComplexMatrixMatchers.h"
#include "tests/support/MatrixGenerators.h"

namespace {

using BF::Matrix;
using namespace reference;
using namespace support;
using testing::Not;

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr double INFINITE = std::numeric_limits<double>::infinity();

/// Up to 2·min(m, n) vectors of squared norm ≤ 1.5e-31 count as zero in the decomposition, an error
/// of 3.9e-16 each that does not shrink with the matrix.
double absoluteFloor(int m, int n) { return 3.9e-16 * std::sqrt(2.0 * std::min(m, n)); }

std::vector<double> realColumn(const Matrix& column) {
  std::vector<double> values;
  for (int i = 0; i < column.getRowCount(); ++i) {
    EXPECT_EQ(column.getElementAt(i, 0).imag(), 0.0);
    values.push_back(column.getElementAt(i, 0).real());
  }
  return values;
}

void expectUnitary(const Matrix& U, int n) {
  const Dense u = fromMatrix(U);
  EXPECT_THAT(reference::toMatrix(adjoint(u) * u), MatrixNear(Matrix::I(n), ROUNDING));
}

/// The laws of A = U · diag(S) · Vᴴ; expected: the singular values, or empty when not known.
void expectSingularValueLaws(const Matrix& A, const std::vector<double>& expected = {}) {
  const int m = A.getRowCount();
  const int n = A.getColumnCount();
  SCOPED_TRACE(testing::Message() << m << " x " << n);
  Matrix U(1, 2), S, V;  // what the arguments held before does not matter
  A.singularValueDecomposition(U, S, V);

  expectUnitary(U, m);
  expectUnitary(V, n);
  ASSERT_EQ(S.getRowCount(), std::max(m, n));
  ASSERT_EQ(S.getColumnCount(), 1);
  const std::vector<double> s = realColumn(S);
  EXPECT_TRUE(std::is_sorted(s.rbegin(), s.rend())) << "not in decreasing order";
  for (int i = 0; i < std::max(m, n); ++i) EXPECT_GE(s[i], 0.0);
  for (int i = std::min(m, n); i < std::max(m, n); ++i) EXPECT_EQ(s[i], 0.0);

  const Dense a = fromMatrix(A);
  const double tolerance = svdAccuracy(m, n) * frobenius(a) + absoluteFloor(m, n);
  const Dense product = fromMatrix(U) * reference::diagonal(m, n, s) * adjoint(fromMatrix(V));
  EXPECT_LE(frobenius(product - a), tolerance);
  // What is left out of a matrix moves no singular value by more than its norm.
  for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(s[i], expected[i], tolerance);
}

/// Small shapes exhaustively, every count up to 64 as rows and as columns, and random shapes.
std::vector<std::array<int, 2>> shapes() {
  std::vector<std::array<int, 2>> result;
  for (int m = 0; m <= 8; ++m) {
    for (int n = 0; n <= 8; ++n) result.push_back({m, n});
  }
  for (int m = 9; m <= 64; ++m) {
    result.push_back({m, m});
    result.push_back({m, 64 - m});
    result.push_back({64 - m, m});
  }
  Generator random(1);
  for (int i = 0; i < 100; ++i) result.push_back({random.integer(0, 64), random.integer(0, 64)});
  return result;
}

TEST(SingularValueDecomposition, HoldsOnRandomShapes) {
  Generator random(2);
  for (const auto& [m, n] : shapes()) expectSingularValueLaws(random.gaussian(m, n));
}

TEST(SingularValueDecomposition, HoldsOnDegenerateSpectra) {
  for (int seed = 0; seed < 40; ++seed) {
    Generator random(seed);
    const int m = random.integer(1, seed == 0 ? 64 : 24);
    const int n = random.integer(1, seed == 0 ? 64 : 24);
    for (const Spectrum kind : ALL_SPECTRA) {
      SCOPED_TRACE(testing::Message()
                   << "seed " << seed << ", spectrum " << static_cast<int>(kind));
      const std::vector<double> values = spectrumOf(kind, std::min(m, n), 1e-14);
      expectSingularValueLaws(random.withSingularValues(m, n, values), values);
    }
  }
}

TEST(SingularValueDecomposition, HoldsOnBadlyScaledMatrices) {
  for (int seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    Generator random(seed);
    const int m = random.integer(1, 12);
    const int n = random.integer(1, 12);
    expectSingularValueLaws(random.badlyScaled(m, n, seed % 2 == 0 ? 150.0 : 12.0));
    const double scale = std::pow(10.0, random.uniform(-150.0, 150.0));
    const std::vector<double> values = spectrumOf(ALL_SPECTRA[seed % 6], std::min(m, n), 1e-9);
    std::vector<double> scaled = values;
    for (double& s : scaled) s *= scale;
    expectSingularValueLaws(random.withSingularValues(m, n, values) * scale, scaled);
  }
}

TEST(SingularValueDecomposition, HoldsOnSparseAndBidiagonalMatrices) {
  for (int seed = 0; seed < 100; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    Generator random(seed);
    const int m = random.integer(1, 10);
    const int n = random.integer(1, 10);
    Matrix sparse(m, n), bidiagonal(m, n), small(m, n);
    for (int r = 0; r < m; ++r) {
      for (int c = 0; c < n; ++c) {
        if (random.chance(0.3)) sparse.setElementAt(r, c, random.integer(-1, 1), 0.0);
        if (c == r || c == r + 1) bidiagonal.setElementAt(r, c, random.integer(0, 1), 0.0);
        // Off-diagonal elements about the size at which they are dropped.
        small.setElementAt(r, c, r == c ? 1.0 : random.uniform(0.0, 4e-7), 0.0);
      }
    }
    expectSingularValueLaws(sparse);
    expectSingularValueLaws(bidiagonal);
    expectSingularValueLaws(small);
  }
}

// ---- pseudo-inverse

/// The four conditions of Penrose for X = A⁺, X as returned. With A = Â + E, where  is the product
/// of the factors that X was made of and ‖E‖ ≤ δ·‖A‖:
///   AXA − A = ÂXE + EXÂ + EXE − E + what the threshold 1e-10 drops,
///   XAX − X = XEX,   AX − (AX)ᴴ = EX − (EX)ᴴ,   likewise XA.
void expectPenroseConditions(const Matrix& A, const Matrix& X) {
  const Dense a = fromMatrix(A);
  const Dense x = fromMatrix(X);
  ASSERT_EQ(x.rows, a.columns);
  ASSERT_EQ(x.columns, a.rows);
  const double normA = frobenius(a);
  const double normX = frobenius(x);
  const double E = svdAccuracy(a.rows, a.columns) * normA + absoluteFloor(a.rows, a.columns);
  const double dropped = 1e-10 * std::sqrt(std::min(a.rows, a.columns));
  const Dense ax = a * x;
  const Dense xa = x * a;
  EXPECT_LE(frobenius(ax * a - a), 3 * E + E * E * normX + dropped);
  EXPECT_LE(frobenius(xa * x - x), normX * E * normX);
  EXPECT_LE(frobenius(ax - adjoint(ax)), 2 * E * normX);
  EXPECT_LE(frobenius(xa - adjoint(xa)), 2 * E * normX);
}

TEST(PseudoInverse, FulfilsThePenroseConditions) {
  for (int seed = 0; seed < 300; ++seed) {
    Generator random(seed);
    const int m = random.integer(1, seed < 10 ? 40 : 12);
    const int n = random.integer(1, seed < 10 ? 40 : 12);
    const Spectrum kind = ALL_SPECTRA[seed % 7];
    const double scale = std::pow(10.0, random.uniform(-3.0, 3.0));
    SCOPED_TRACE(testing::Message() << "seed " << seed << ": " << m << " x " << n << ", spectrum "
                                    << static_cast<int>(kind) << ", scale " << scale);
    const std::vector<double> values = spectrumOf(kind, std::min(m, n), 1e-3);
    const Matrix A = random.withSingularValues(m, n, values) * scale;
    const Matrix X = A.pseudoInverse();
    expectPenroseConditions(A, X);

    // ‖A⁺‖² = Σ 1/σ²: a zero singular value that slipped through would dwarf the sum.
    double squared = 0.0;
    for (const double s : values) squared += s > 0.0 ? 1.0 / (s * scale * s * scale) : 0.0;
    const double slack = 2e3 * svdAccuracy(m, n);  // σ is off by δ·‖A‖ at most, 1e-3 · ‖A‖ ≤ σ
    EXPECT_NEAR(frobenius(X), std::sqrt(squared), slack * std::sqrt(squared));
  }
}

TEST(PseudoInverse, DropsSingularValuesUpToItsThreshold) {
  // 1 × 1 and column shapes need no QR sweep: the singular value is exact.
  EXPECT_THAT(matrixOf({{1e-10}}).pseudoInverse(), MatrixEq(matrixOf({{0.0}})));
  EXPECT_THAT(matrixOf({{{0.0, 1.0000001e-10}}}).pseudoInverse(),
              MatrixNear(matrixOf({{{0.0, -1e10 / 1.0000001}}}), 1e-2));
  EXPECT_THAT(Matrix(3, 5).pseudoInverse(), MatrixEq(Matrix(5, 3)));
  EXPECT_THAT(Matrix(0, 5).pseudoInverse(), MatrixEq(Matrix(5, 0)));
  EXPECT_THAT(Matrix(5, 0).pseudoInverse(), MatrixEq(Matrix(0, 5)));
  EXPECT_THAT(matrixOf({{3.0, 0.0, 4.0}}).pseudoInverse(),
              MatrixNear(matrixOf({{0.12}, {0.0}, {0.16}}), ROUNDING));
}

// ---- Hermitian eigenvalues

TEST(EigenValues, HoldOnEverySizeAndSpectrum) {
  for (int n = 0; n <= 64; n = n < 12 ? n + 1 : n + 13) {
    for (const Spectrum kind : ALL_SPECTRA) {
      SCOPED_TRACE(testing::Message() << "n " << n << ", spectrum " << static_cast<int>(kind));
      Generator random(10 * n + static_cast<int>(kind));
      const double scale = std::pow(10.0, 140 * random.integer(-1, 1) + random.uniform(-9.0, 9.0));
      std::vector<double> expected = spectrumOf(kind, n, 1e-14);
      for (std::size_t i = 0; i < expected.size(); ++i) expected[i] *= i % 3 ? scale : -scale;
      Matrix A = random.hermitian(expected);
      Matrix values, vectors(3, 1);
      A.eigenValues(values, vectors);

      expectUnitary(vectors, n);
      ASSERT_EQ(values.getRowCount(), n);
      std::vector<double> d = realColumn(values);
      const Dense a = fromMatrix(A);
      const Dense v = fromMatrix(vectors);
      const double tolerance = ROUNDING * frobenius(a);
      EXPECT_LE(frobenius(a * v - v * reference::diagonal(n, n, d)), tolerance);
      std::sort(d.begin(), d.end());
      std::sort(expected.begin(), expected.end());
      for (int i = 0; i < n; ++i) EXPECT_NEAR(d[i], expected[i], tolerance);

      // The lower triangle and the imaginary parts of the diagonal are not read.
      Matrix again, vectorsAgain;
      for (int r = 0; r < n; ++r) {
        for (int c = 0; c < r; ++c) A.setElementAt(r, c, NOT_A_NUMBER);
        A.setElementAt(r, r, {A.getElementAt(r, r).real(), 5.0});
      }
      A.eigenValues(again, vectorsAgain);
      EXPECT_THAT(again, MatrixEq(values));
      EXPECT_THAT(vectorsAgain, MatrixEq(vectors));
    }
  }
}

TEST(EigenValues, LeaveADiagonalMatrixAsItStands) {
  Matrix values, vectors;
  matrixOf({{3.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 2.0}}).eigenValues(values, vectors);
  EXPECT_THAT(values, MatrixEq(matrixOf({{3.0}, {1.0}, {2.0}})));
  EXPECT_THAT(vectors, MatrixEq(Matrix::I(3)));
}

TEST(GeneralizedEigenValues, HoldForHermitianPairs) {
  for (int seed = 0; seed < 150; ++seed) {
    Generator random(seed);
    const int n = random.integer(0, seed < 4 ? 40 : 12);
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", n " << n);
    std::vector<double> spectrum(n);
    for (double& value : spectrum) value = random.uniform(-1.0, 1.0);
    const double smallest = std::pow(10.0, random.uniform(-4.0, 0.0));
    const double scale = std::pow(10.0, random.uniform(-3.0, 3.0));
    const Matrix A = random.hermitian(spectrum) * std::pow(10.0, random.uniform(-8.0, 8.0));
    const Matrix B = random.hermitian(spectrumOf(Spectrum::GRADED, n, smallest)) * scale;
    Matrix values, vectors;
    A.generalizedEigenValues(B, values, vectors);

    ASSERT_EQ(values.getRowCount(), n);
    const Dense a = fromMatrix(A), b = fromMatrix(B), x = fromMatrix(vectors);
    const Dense lambda = reference::diagonal(n, n, realColumn(values));
    // The factor B = Rᴴ·R is inverted through its singular values, so R · R⁻¹ = I + F with
    // ‖F‖ ≤ δ · κ(R), κ(R)² = κ(B) = 1 / smallest; hence xᴴ·B·x = I + F + Fᴴ, and
    // A·x − λ·B·x = λ · Rᴴ · (F + Fᴴ) · y to first order, ‖R‖² = ‖B‖. F is below 1/3 here, so
    // a factor 2 covers the higher orders.
    const double F = svdAccuracy(n, n) * std::sqrt(n / smallest);
    const double residual = 4 * F * frobenius(lambda) * std::sqrt(frobenius(b));
    const double rounding = ROUNDING * frobenius(a) * frobenius(x);
    EXPECT_LE(frobenius(a * x - b * x * lambda), residual + rounding);
    EXPECT_LE(frobenius(adjoint(x) * b * x - reference::identity(n)), 4 * F);
  }
}

TEST(GeneralizedSingularValues, DecomposeTheQuotient) {
  for (int seed = 0; seed < 100; ++seed) {
    Generator random(seed);
    const int m = random.integer(1, 10);
    const int n = random.integer(1, 10);
    SCOPED_TRACE(testing::Message() << "seed " << seed << ": " << m << " x " << n);
    const Matrix A = random.gaussian(m, n);
    const Matrix B = random.hermitian(spectrumOf(Spectrum::GRADED, m, 1e-2));
    Matrix U, S, V;
    A.generalizedSingularValues(B, U, S, V);

    expectUnitary(U, m);
    expectUnitary(V, n);
    ASSERT_EQ(S.getRowCount(), std::max(m, n));
    const Dense quotient = reference::solve(fromMatrix(B), fromMatrix(A));
    const Dense product =
        fromMatrix(U) * reference::diagonal(m, n, realColumn(S)) * adjoint(fromMatrix(V));
    EXPECT_LE(frobenius(product - quotient), svdAccuracy(m, n) * frobenius(quotient));
  }
}

// ---- inverse

/// The inverse and what it printed.
std::pair<Matrix, std::string> inverseAndOutput(const Matrix& A) {
  testing::internal::CaptureStdout();
  Matrix result = A.Inverse();
  return {result, testing::internal::GetCapturedStdout()};
}

constexpr char NOT_SQUARE[] = "Error : Inverse : Not a square matrix.\n";
constexpr char SINGULAR[] = "ERROR!!No inverse matrix available.\n";

TEST(Inverse, InvertsWithoutScaledPivoting) {
  for (int seed = 0; seed < 200; ++seed) {
    Generator random(seed);
    const int n = random.integer(0, seed < 5 ? 64 : 12);
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", n " << n);
    // Diagonally dominant, so that elimination without pivoting is stable and κ is below 10.
    Matrix A = random.gaussian(n, n) * (1.0 / (4 * n + 1)) + Matrix::I(n);
    EXPECT_LE(frobenius(fromMatrix(A) * fromMatrix(A.Inverse()) - reference::identity(n)),
              ROUNDING * n);
    // Rows rotated by one: every pivot column but the last starts with an exact zero.
    Matrix P(n, n);
    for (int r = 0; r < n; ++r) P.setElementAt(r, (r + 1) % n, 2.0 + r, -1.0);
    const auto [inverse, output] = inverseAndOutput(P);
    EXPECT_LE(frobenius(fromMatrix(P) * fromMatrix(inverse) - reference::identity(n)),
              ROUNDING * n);
    EXPECT_EQ(output, "");
  }
  EXPECT_THAT(matrixOf({{0.0, 1.0}, {1.0, 0.0}}).Inverse(),
              MatrixEq(matrixOf({{0.0, 1.0}, {1.0, 0.0}})));
  // A tiny pivot is used as it is: the result is the one of the elimination, not of mathematics.
  EXPECT_THAT(matrixOf({{1e-20, 1.0}, {1.0, 1.0}}).Inverse(),
              MatrixNear(matrixOf({{0.0, 1.0}, {1.0, 0.0}}), 1e-15));
}

TEST(Inverse, ReportsOnStandardOutputWhatItCannotInvert) {
  const auto [notSquare, notSquareOutput] =
      inverseAndOutput(matrixOf({{1.0, 2.0, 3.0}, {4.0, 5.0, 6.0}}));
  EXPECT_EQ(notSquareOutput, NOT_SQUARE);
  EXPECT_THAT(notSquare, MatrixEq(Matrix(2, 3)));

  const auto [singular, singularOutput] = inverseAndOutput(matrixOf({{1.0, 2.0}, {2.0, 4.0}}));
  EXPECT_EQ(singularOutput, SINGULAR);
  EXPECT_THAT(singular, Not(IsFinite()));

  EXPECT_EQ(inverseAndOutput(matrixOf({{0.0}})).second, SINGULAR);
  EXPECT_EQ(inverseAndOutput(Matrix()).second, "");
  // NaN is a pivot like any other, and one whose squared modulus underflows divides by zero.
  EXPECT_EQ(inverseAndOutput(matrixOf({{0.0, 1.0}, {NOT_A_NUMBER, 1.0}})).second, "");
  const auto [tiny, tinyOutput] = inverseAndOutput(matrixOf({{1e-300, 1.0}, {1.0, 1.0}}));
  EXPECT_EQ(tinyOutput, "");
  EXPECT_THAT(tiny, Not(IsFinite()));

  testing::internal::CaptureStdout();
  Matrix U, S, V;
  Matrix::I(2).generalizedSingularValues(Matrix(2, 2), U, S, V);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), SINGULAR);

  // A B that is not square: the sizes are still those of A.
  for (const int rows : {0, 2, 3, 5}) {
    testing::internal::CaptureStdout();
    EXPECT_THROW(Matrix::I(3).generalizedSingularValues(Matrix(rows, 4), U, S, V),
                 BF::MatrixSizeMismatchException);
    Matrix(4, 3).generalizedSingularValues(Matrix(rows, 4), U, S, V);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string(NOT_SQUARE) + NOT_SQUARE);
    EXPECT_THAT(U, MatrixEq(Matrix::I(4)));
    EXPECT_THAT(S, MatrixEq(Matrix(4, 1)));
    EXPECT_THAT(V, MatrixEq(Matrix::I(3)));
  }
}

// ---- input that no decomposition can honour

TEST(EigenValues, WithoutConvergenceStandInIncreasingOrderWithTheirVectors) {
  Matrix A = matrixOf({{3.0, NOT_A_NUMBER, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 2.0}});
  Matrix values, vectors;
  A.eigenValues(values, vectors);
  EXPECT_THAT(values, MatrixEq(matrixOf({{1.0}, {2.0}, {3.0}})));
  EXPECT_THAT(vectors, MatrixEq(matrixOf({{0.0, 0.0, 1.0}, {1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}})));
}

TEST(Decompositions, EndInFiniteTimeWhateverTheInput) {
  const double poison[] = {NOT_A_NUMBER, INFINITE, -INFINITE, 1e200, 1e308, 1e-310};
  testing::internal::CaptureStdout();
  for (int seed = 0; seed < 300; ++seed) {
    Generator random(seed);
    const int m = random.integer(1, 8);
    const int n = seed % 2 == 0 ? m : random.integer(1, 8);
    Matrix A = random.gaussian(m, n);
    for (int i = random.integer(1, 2 * m); i > 0; --i) {
      A.setElementAt(random.integer(0, m - 1), random.integer(0, n - 1),
                     poison[random.integer(0, 5)], poison[random.integer(0, 5)]);
    }
    Matrix X, Y, Z;
    A.singularValueDecomposition(X, Y, Z);
    EXPECT_EQ(X.getRowCount(), m);
    EXPECT_EQ(A.pseudoInverse().getRowCount(), n);
    A.generalizedSingularValues(random.gaussian(m, m), X, Y, Z);
    random.gaussian(m, n).generalizedSingularValues(A * A.transposed(true), X, Y, Z);
    if (m != n) continue;
    EXPECT_EQ(A.Inverse().getRowCount(), m);
    A.eigenValues(X, Y);
    EXPECT_EQ(X.getRowCount(), m);
    A.generalizedEigenValues(Matrix::I(m), X, Y);
    random.hermitian(std::vector<double>(m, 1.0)).generalizedEigenValues(A, X, Y);
    // Indefinite and zero right-hand sides carry on too.
    Matrix::I(m).generalizedEigenValues(Matrix::I(m) * -1.0, X, Y);
    Matrix::I(m).generalizedEigenValues(Matrix(m, m), X, Y);
  }
  testing::internal::GetCapturedStdout();
}

/// The same bits, except that one NaN is as good as another.
bool sameNumbers(const Matrix& a, const Matrix& b) {
  if (a.getRowCount() != b.getRowCount() || a.getColumnCount() != b.getColumnCount()) return false;
  const auto* x = reinterpret_cast<const double*>(a.data());
  const auto* y = reinterpret_cast<const double*>(b.data());
  return std::equal(x, x + 2 * a.getRowCount() * a.getColumnCount(), y,
                    [](const double& u, const double& v) {
                      return std::memcmp(&u, &v, sizeof u) == 0 || (u != u && v != v);
                    });
}

/// An operation on a Batch, what does the same to one matrix, and the shapes it takes.
struct BatchOperation {
  const char* name;
  void (*onBatch)(const BF::Batch&);
  Matrix (*onOne)(const Matrix&);
  enum { ANY, TALL, SQUARE, HERMITIAN } shape;
};

Matrix leftVectors(const Matrix& A, int begin, int end) {
  Matrix U, S, V;
  A.singularValueDecomposition(U, S, V);
  return U.getSubmatrix(0, begin, A.getRowCount(), end - begin);
}

Matrix principalEigenVector(const Matrix& A) {
  Matrix values, vectors;
  A.eigenValues(values, vectors);
  return vectors.getColumn(values.getMaximumValueIndexInColumn(0));
}

// Each operand is both matrices of its pair.
void ownPairs(const BF::Batch& batch) {
  std::vector<BF::EigenPair> pairs;
  for (const BF::BatchItem& item : batch)
    pairs.push_back({item.operand, item.operand, item.result});
  BF::principalGeneralisedVectors(pairs);
}

const BatchOperation BATCH_OPERATIONS[] = {
    {"principalGeneralisedVectors", ownPairs,
     [](const Matrix& A) { return A * principalEigenVector(A.transposed(true) * A * A); },
     BatchOperation::HERMITIAN},
    {"pseudoInverses", BF::pseudoInverses, [](const Matrix& A) { return A.pseudoInverse(); },
     BatchOperation::ANY},
    {"orthogonalComplements", BF::orthogonalComplements,
     [](const Matrix& A) { return leftVectors(A, A.getColumnCount(), A.getRowCount()); },
     BatchOperation::TALL},
    {"principalSingularVectors", BF::principalSingularVectors,
     [](const Matrix& A) { return leftVectors(A, 0, 1); }, BatchOperation::SQUARE},
    {"inverses", BF::inverses, [](const Matrix& A) { return A.Inverse(); }, BatchOperation::SQUARE},
    {"inverseCholeskyFactors", BF::inverseCholeskyFactors,
     [](const Matrix& A) { return A.inverseCholeskyFactor(); }, BatchOperation::HERMITIAN},
    {"principalEigenVectors", BF::principalEigenVectors, principalEigenVector,
     BatchOperation::HERMITIAN}};

/// A matrix of any spectrum and scale, or a sparse one, some with poison in a few places.
Matrix batchOperand(Generator& random, bool hermitian, int m, int n) {
  const double poison[] = {0.0, -0.0, 1e-160, 1e170, 1e-300, 1e300, INFINITE, NOT_A_NUMBER};
  const Spectrum kind = ALL_SPECTRA[random.integer(0, 6)];
  const std::vector<double> values = spectrumOf(kind, std::min(m, n));
  Matrix A = hermitian            ? random.hermitian(values)
             : random.chance(0.7) ? random.withSingularValues(m, n, values)
                                  : random.integers(m, n);
  A = A * std::pow(10.0, random.uniform(-160.0, 150.0) * random.integer(0, 1));
  if (!random.chance(0.25)) return A;
  for (int i = random.integer(1, 2 * n); i > 0; --i) {
    A.setElementAt(random.integer(0, m - 1), random.integer(0, n - 1), poison[random.integer(0, 7)],
                   poison[random.integer(0, 7)]);
  }
  return A;
}

TEST(Batch, GivesToTheBitWhatEachGivesAloneOnEveryProcessor) {
  const std::vector<std::int64_t> targets = hwy::SupportedAndGeneratedTargets();
  testing::internal::CaptureStdout();
  for (int seed = 0; seed < 1200; ++seed) {
    Generator random(seed);
    const BatchOperation& operation = BATCH_OPERATIONS[seed % std::size(BATCH_OPERATIONS)];
    int m = random.integer(1, 12);
    int n = operation.shape >= BatchOperation::SQUARE ? m : random.integer(1, 12);
    if (operation.shape == BatchOperation::TALL && m < n) std::swap(m, n);
    std::vector<Matrix> operands(random.integer(0, 19));
    std::vector<Matrix> results(operands.size(), Matrix(3, 1));
    BF::Batch batch;
    for (std::size_t i = 0; i < operands.size(); ++i) {
      operands[i] = batchOperand(random, operation.shape == BatchOperation::HERMITIAN, m, n);
      batch.push_back({&operands[i], &results[i]});
    }
    const std::int64_t target = targets[random.integer(0, static_cast<int>(targets.size()) - 1)];
    hwy::SetSupportedTargetsForTest(target);
    operation.onBatch(batch);
    hwy::SetSupportedTargetsForTest(0);
    for (std::size_t i = 0; i < operands.size(); ++i) {
      ASSERT_TRUE(sameNumbers(results[i], operation.onOne(operands[i])))
          << operation.name << ", seed " << seed << ", " << m << " x " << n << ", " << i << ", "
          << hwy::TargetName(target);
    }
  }
  testing::internal::GetCapturedStdout();
}

TEST(Batch, NeedsOneShapeThatFits) {
  const Matrix tall(3, 2), wide(2, 3), two(2, 2), three(3, 3), none(0, 0);
  Matrix result;
  for (const BatchOperation& operation : BATCH_OPERATIONS) {
    SCOPED_TRACE(operation.name);
    EXPECT_THROW(operation.onBatch({{&two, &result}, {&three, &result}}),
                 BF::MatrixSizeMismatchException);
    if (operation.shape >= BatchOperation::SQUARE) {
      EXPECT_THROW(operation.onBatch({{&tall, &result}}), BF::NotSquareMatrixException);
    }
  }
  EXPECT_THROW(BF::orthogonalComplements({{&wide, &result}}), BF::MatrixSizeMismatchException);
  EXPECT_THROW(BF::principalEigenVectors({{&none, &result}}), BF::IndexOutOfBoundException);
  EXPECT_THROW(BF::principalSingularVectors({{&none, &result}}), BF::IndexOutOfBoundException);
}

}  // namespace
