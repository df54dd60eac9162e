#include "matrix/Matrix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>
#include <typeindex>
#include <vector>

#include "tests/support/ComplexMatrixMatchers.h"
#include "tests/support/MatrixGenerators.h"

namespace {

using BF::Matrix;
using support::Generator;
using support::MatrixEq;
using support::MatrixNear;
using support::matrixOf;
using testing::Not;
using Complex = std::complex<double>;

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr double INFINITE = std::numeric_limits<double>::infinity();

// ---- checks

struct Nothing {};

/// The exact type of what f throws; Nothing when it returns.
std::type_index thrownBy(const std::function<void()>& f) {
  try {
    f();
  } catch (const std::exception& e) {
    return typeid(e);
  }
  return typeid(Nothing);
}

/// One call on a 2 × 3 matrix m, and what it throws.
struct Refusal {
  const char* call;
  std::type_index thrown;
  std::function<void(Matrix& m)> run;
};

TEST(Matrix, ChecksItsArgumentsInTheDocumentedOrder) {
  const std::type_index index = typeid(BF::IndexOutOfBoundException);
  const std::type_index size = typeid(BF::MatrixSizeMismatchException);
  const std::type_index notVector = typeid(BF::NotVectorException);
  const std::type_index notScalar = typeid(BF::NotScalarException);
  const std::type_index notSquare = typeid(BF::NotSquareMatrixException);
  const std::type_index nothing = typeid(Nothing);
  Matrix a, b, c;
  const std::vector<Refusal> refusals{
      {"getElementAt, row = rows", index, [](Matrix& m) { m.getElementAt(2, 0); }},
      {"getElementAt, column = columns", index, [](Matrix& m) { m.getElementAt(0, 3); }},
      {"getElementAt, last", nothing, [](Matrix& m) { m.getElementAt(1, 2); }},
      {"setElementAt, row = rows", index, [](Matrix& m) { m.setElementAt(2, 0, 1.0); }},
      {"setElementAt, column = columns", index, [](Matrix& m) { m.setElementAt(0, 3, 1.0, 2.0); }},
      {"getColumn, past the end", index, [](Matrix& m) { m.getColumn(3); }},
      {"getRow, past the end", index, [](Matrix& m) { m.getRow(2); }},
      {"setColumn, everything wrong", index, [](Matrix& m) { m.setColumn(3, Matrix(5, 5)); }},
      {"setColumn, length and shape wrong", size, [](Matrix& m) { m.setColumn(0, Matrix(3, 2)); }},
      {"setColumn, length wrong", size, [](Matrix& m) { m.setColumn(0, Matrix(3, 1)); }},
      {"setColumn, two columns", notVector, [](Matrix& m) { m.setColumn(0, Matrix(2, 2)); }},
      {"setColumn, no column", notVector, [](Matrix& m) { m.setColumn(0, Matrix(2, 0)); }},
      {"setRow, everything wrong", index, [](Matrix& m) { m.setRow(2, Matrix(5, 5)); }},
      {"setRow, length and shape wrong", size, [](Matrix& m) { m.setRow(0, Matrix(2, 2)); }},
      {"setRow, length wrong", size, [](Matrix& m) { m.setRow(0, Matrix(1, 2)); }},
      {"setRow, two rows", notVector, [](Matrix& m) { m.setRow(0, Matrix(2, 3)); }},
      {"getSubmatrix, whole", nothing, [](Matrix& m) { m.getSubmatrix(0, 0, 2, 3); }},
      {"getSubmatrix, empty at the end", nothing, [](Matrix& m) { m.getSubmatrix(2, 3, 0, 0); }},
      {"getSubmatrix, row below 0", index, [](Matrix& m) { m.getSubmatrix(-1, 0, 1, 1); }},
      {"getSubmatrix, column below 0", index, [](Matrix& m) { m.getSubmatrix(0, -1, 1, 1); }},
      {"getSubmatrix, too many rows", index, [](Matrix& m) { m.getSubmatrix(1, 0, 2, 1); }},
      {"getSubmatrix, too many columns", index, [](Matrix& m) { m.getSubmatrix(0, 1, 1, 3); }},
      {"setSubmatrix, row below 0", index, [](Matrix& m) { m.setSubmatrix(-1, 0, Matrix(1, 1)); }},
      {"setSubmatrix, column below 0", index,
       [](Matrix& m) { m.setSubmatrix(0, -1, Matrix(1, 1)); }},
      {"setSubmatrix, too many rows", index, [](Matrix& m) { m.setSubmatrix(1, 0, Matrix(2, 1)); }},
      {"setSubmatrix, too many columns", index,
       [](Matrix& m) { m.setSubmatrix(0, 1, Matrix(1, 3)); }},
      {"diagonalMatrix", notVector, [](Matrix& m) { m.diagonalMatrix(); }},
      {"multiplied", size, [](Matrix& m) { m.multiplied(Matrix(2, 3)); }},
      {"multiply", size, [](Matrix& m) { m.multiply(Matrix(2, 3)); }},
      {"operator*", size, [](Matrix& m) { m* Matrix(2, 3); }},
      {"elementwiseDivided, rows", size, [](Matrix& m) { m.elementwiseDivided(Matrix(3, 3)); }},
      {"elementwiseMultiplied, columns", size,
       [](Matrix& m) { m.elementwiseMultiplied(Matrix(2, 2)); }},
      {"elementwiseFMultiplied, same count", size,
       [](Matrix& m) { m.elementwiseFMultiplied(Matrix(3, 2)); }},
      {"scalar of a vector", notScalar, [](Matrix&) { Matrix(1, 2).scalar(); }},
      {"scalar of nothing", notScalar, [](Matrix&) { Matrix().scalar(); }},
      {"norm", notVector, [](Matrix& m) { m.norm(); }},
      {"norm of nothing", notVector, [](Matrix&) { Matrix().norm(); }},
      {"norm of an empty row", nothing, [](Matrix&) { Matrix(1, 0).norm(); }},
      {"getMaximumValueIndexInRow", index, [](Matrix& m) { m.getMaximumValueIndexInRow(2); }},
      {"getMaximumValueIndexInColumn", index, [](Matrix& m) { m.getMaximumValueIndexInColumn(3); }},
      {"eigenValues", notSquare, [&](Matrix& m) { m.eigenValues(a, b); }},
      {"generalizedEigenValues, B checked before A", notSquare,
       [&](Matrix& m) { m.generalizedEigenValues(Matrix(3, 2), a, b); }},
      {"generalizedEigenValues, A does not fit", size,
       [&](Matrix& m) { m.generalizedEigenValues(Matrix::I(2), a, b); }},
      {"generalizedSingularValues", size,
       [&](Matrix& m) { m.generalizedSingularValues(Matrix::I(3), a, b, c); }},
  };
  const Matrix original = matrixOf({{1.0, 2.0, 3.0}, {4.0, 5.0, {6.0, -1.0}}});
  for (const Refusal& refusal : refusals) {
    Matrix m = original;
    EXPECT_EQ(thrownBy([&] { refusal.run(m); }), refusal.thrown) << refusal.call;
    EXPECT_THAT(m, MatrixEq(original)) << refusal.call;
  }
}

TEST(Matrix, ReachesStorageUncheckedWithANegativeIndex) {
  Matrix m = matrixOf({{1.0, 2.0}, {3.0, 4.0}});
  // Row-major storage: (1, −1) is the element before (1, 0), and (−1, 3) the one at −2 + 3.
  EXPECT_EQ(m.getElementAt(1, -1), 2.0);
  m.setElementAt(1, -1, 7.0);
  EXPECT_THAT(m, MatrixEq(matrixOf({{1.0, 7.0}, {3.0, 4.0}})));
  EXPECT_THROW(m.getElementAt(-1, 3), BF::IndexOutOfBoundException);
}

using MatrixDeathTest = testing::Test;

TEST(MatrixDeathTest, SumsOfDifferentShapesEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto aborts = testing::KilledBySignal(SIGABRT);
  EXPECT_EXIT(Matrix(2, 2) + Matrix(3, 2), aborts, "terminate");
  EXPECT_EXIT(Matrix(2, 2) + Matrix(2, 3), aborts, "terminate");
  EXPECT_EXIT(Matrix(2, 2) - Matrix(3, 2), aborts, "terminate");
  EXPECT_EXIT(Matrix(2, 2) - Matrix(2, 3), aborts, "terminate");
}

TEST(Matrix, SumOfDifferentShapesRethrowsTheExceptionBeingHandled) {
  try {
    throw BF::NotScalarException();
  } catch (const BF::NotScalarException&) {
    EXPECT_THROW(Matrix(2, 2) - Matrix(3, 2), BF::NotScalarException);
  }
}

// ---- value semantics

TEST(Matrix, IsAPlainValue) {
  const Matrix original = matrixOf({{1.0, 2.0}, {3.0, {4.0, 5.0}}});
  Matrix copy = original;
  copy.setElementAt(0, 0, 9.0);
  EXPECT_EQ(original.getElementAt(0, 0), 1.0);

  Matrix assigned(5, 1);
  assigned = original;
  EXPECT_THAT(assigned, MatrixEq(original));
  const Complex* storage = &assigned.getElementAt(0, 0);
  const Matrix& alias = assigned;
  assigned = alias;
  EXPECT_EQ(&assigned.getElementAt(0, 0), storage) << "self-assignment reallocated";
  EXPECT_THAT(assigned, MatrixEq(original));

  Matrix other = matrixOf({{7.0}});
  std::swap(assigned, other);
  EXPECT_EQ(&other.getElementAt(0, 0), storage) << "std::swap copied";
  EXPECT_THAT(other, MatrixEq(original));
  EXPECT_THAT(assigned, MatrixEq(matrixOf({{7.0}})));
  EXPECT_THAT(Matrix(2, 3), MatrixEq(matrixOf({{0.0, 0.0, 0.0}, {0.0, 0.0, 0.0}})));
  EXPECT_THAT(Matrix(), MatrixEq(Matrix(0, 0)));
}

// ---- structure and arithmetic against plain loops

/// a · b, every element summed in the order of its index.
Matrix productInOrder(const Matrix& a, const Matrix& b) {
  Matrix result(a.getRowCount(), b.getColumnCount());
  for (int r = 0; r < a.getRowCount(); ++r) {
    for (int c = 0; c < b.getColumnCount(); ++c) {
      Complex sum = 0.0;
      for (int k = 0; k < a.getColumnCount(); ++k) {
        sum += a.getElementAt(r, k) * b.getElementAt(k, c);
      }
      result.setElementAt(r, c, sum);
    }
  }
  return result;
}

/// Runs a check for many shapes m × n and n × p, empty ones among them.
void onManyShapes(const std::function<void(Generator& random, int m, int n, int p)>& check) {
  for (int seed = 0; seed < 400; ++seed) {
    Generator random(seed);
    const int m = random.integer(0, 9);
    const int n = random.integer(0, 9);
    const int p = random.integer(0, 9);
    SCOPED_TRACE(testing::Message() << "seed " << seed << ": " << m << " x " << n << " x " << p);
    check(random, m, n, p);
  }
}

TEST(Matrix, CalculatesLikePlainLoops) {
  onManyShapes([](Generator& random, int m, int n, int p) {
    // The order of a sum shows in the rounding of general elements, and in nothing else.
    const Matrix G = random.gaussian(m, n);
    const Matrix H = random.gaussian(n, p);
    EXPECT_THAT(G * H, MatrixEq(productInOrder(G, H)));

    // Small whole numbers make everything else exact.
    const Matrix A = random.integers(m, n);
    const Matrix B = random.integers(n, p);
    const Matrix C = random.integers(m, n);
    const Complex s(random.integer(-9, 9), random.integer(-9, 9));
    const reference::Dense a = reference::fromMatrix(A);
    const reference::Dense b = reference::fromMatrix(B);
    const reference::Dense c = reference::fromMatrix(C);
    const reference::Complex t(s);
    const auto is = [](const reference::Dense& expected) {
      return MatrixEq(reference::toMatrix(expected));
    };

    EXPECT_THAT(A * B, is(a * b));
    EXPECT_THAT(A.multiplied(B), is(a * b));
    EXPECT_THAT(A + C, is(a + c));
    EXPECT_THAT(A - C, is(a - c));
    EXPECT_THAT(A * s, is(t * a));
    EXPECT_THAT(s * A, is(t * a));
    EXPECT_THAT(A.transposed(false), is(reference::transposed(a)));
    EXPECT_THAT(A.transposed(true), is(reference::adjoint(a)));
    EXPECT_THAT(A.conjugated(), is(reference::conjugated(a)));
    EXPECT_THAT(Matrix::I(m), is(reference::identity(m)));
    EXPECT_THAT(Matrix::O(m, n), is(reference::Dense(m, n)));

    Matrix changed = A;
    EXPECT_EQ(&changed.multiply(B), &changed);
    EXPECT_THAT(changed, is(a * b));
    EXPECT_EQ(&changed.transpose(true).conjugate(), &changed);
    EXPECT_THAT(changed, is(reference::transposed(a * b)));
  });
}

TEST(Matrix, CombinesAndSumsElementByElement) {
  onManyShapes([](Generator& random, int m, int n, int) {
    const Matrix A = random.integers(m, n);
    const Matrix C = random.integers(m, n);
    Complex sum = 0.0;
    Matrix product(m, n), leftConjugated(m, n), diagonal(std::min(m, n), 1);
    for (int r = 0; r < m; ++r) {
      for (int q = 0; q < n; ++q) {
        const Complex x = A.getElementAt(r, q);
        const Complex y = C.getElementAt(r, q);
        sum += x;
        product.setElementAt(r, q, x * y);
        leftConjugated.setElementAt(r, q, std::conj(x) * y);
        if (r == q) diagonal.setElementAt(r, 0, x);
      }
    }
    EXPECT_THAT(A.elementwiseMultiplied(C), MatrixEq(product));
    EXPECT_THAT(A.elementwiseFMultiplied(C), MatrixEq(leftConjugated));
    EXPECT_THAT(A.diagonalElements(), MatrixEq(diagonal));
    EXPECT_EQ(A.getElementSum(), sum);
    const reference::Dense a = reference::fromMatrix(A);
    EXPECT_NEAR(std::abs(A.frobeniusNorm() - reference::frobenius(a)), 0.0, 1e-13);
    for (int q = 0; q < n; ++q) {
      const double squared = static_cast<double>(squaredNorm(column(a, q)));
      EXPECT_EQ(A.getColumn(q).norm(), squared);
      EXPECT_EQ(A.getColumn(q).transposed(false).norm(), squared);
    }
  });
}

TEST(Matrix, IsMadeOfItsRowsItsColumnsAndItsBlocks) {
  onManyShapes([](Generator& random, int m, int n, int) {
    const Matrix A = random.integers(m, n);
    const Matrix C = random.integers(m, n);
    Matrix rebuilt(m, n);
    for (int q = 0; q < n; ++q) rebuilt.setColumn(q, A.getColumn(q));
    EXPECT_THAT(rebuilt, MatrixEq(A));
    for (int r = 0; r < m; ++r) rebuilt.setRow(r, C.getRow(r));
    EXPECT_THAT(rebuilt, MatrixEq(C));

    // Splitting a matrix in four blocks and putting them together gives it back.
    const int top = random.integer(0, m);
    const int left = random.integer(0, n);
    Matrix joined(m, n);
    joined.setSubmatrix(0, 0, A.getSubmatrix(0, 0, top, left));
    joined.setSubmatrix(0, left, A.getSubmatrix(0, left, top, n - left));
    joined.setSubmatrix(top, 0, A.getSubmatrix(top, 0, m - top, left));
    joined.setSubmatrix(top, left, A.getSubmatrix(top, left, m - top, n - left));
    EXPECT_THAT(joined, MatrixEq(A));
  });
}

TEST(Matrix, TreatsElementsOneByOne) {
  const Matrix z = matrixOf({{{3.0, 4.0}, -4.0}, {{0.0, -2.0}, {3e200, 4e200}}});
  EXPECT_THAT(z.elementwiseAbs(), MatrixNear(matrixOf({{5.0, 4.0}, {2.0, 5e200}}), 1e185));
  EXPECT_THAT(z.absoluteValues(), MatrixEq(z.elementwiseAbs()));
  EXPECT_THAT(z.getSubmatrix(0, 0, 2, 1).elementwiseNorm(), MatrixEq(matrixOf({{25.0}, {4.0}})));
  EXPECT_THAT(z.elementwiseSqrt().getSubmatrix(0, 0, 2, 1),
              MatrixNear(matrixOf({{{2.0, 1.0}}, {{1.0, -1.0}}}), 1e-15));
  EXPECT_EQ(z.elementwiseSqrt().getElementAt(0, 1), Complex(0.0, 2.0));
  EXPECT_THAT(matrixOf({{{1.0, 2.0}, {3e200, 4e200}}})
                  .elementwiseDivided(matrixOf({{{3.0, -4.0}, {3e200, 4e200}}})),
              MatrixNear(matrixOf({{{-0.2, 0.4}, 1.0}}), 1e-15));
}

TEST(Matrix, MultipliesInfinitiesAsComplexNumbers) {
  // Written out part by part both products below would be NaN + NaN·i.
  const Matrix infinite = matrixOf({{{INFINITE, INFINITE}}});
  const Matrix one = matrixOf({{1.0}});
  EXPECT_TRUE(std::isinf(infinite.elementwiseMultiplied(one).scalar().real()));
  EXPECT_TRUE(std::isinf(infinite.multiplied(one).scalar().real()));
  EXPECT_EQ(one.elementwiseDivided(infinite).scalar(), 0.0);
}

TEST(Matrix, HandlesVectorsAndEmptyShapes) {
  EXPECT_THAT(matrixOf({{1.0}, {2.0}}).diagonalMatrix(),
              MatrixEq(matrixOf({{1.0, 0.0}, {0.0, 2.0}})));
  EXPECT_THAT(matrixOf({{1.0, 2.0}}).diagonalMatrix(),
              MatrixEq(matrixOf({{1.0, 0.0}, {0.0, 2.0}})));
  EXPECT_THAT(matrixOf({{3.0}}).diagonalMatrix(), MatrixEq(matrixOf({{3.0}})));
  EXPECT_THAT(Matrix(0, 1).diagonalMatrix(), MatrixEq(Matrix()));
  EXPECT_THAT(Matrix(2, 0) * Matrix(0, 2), MatrixEq(Matrix(2, 2)));
  EXPECT_EQ(matrixOf({{3.0, {0.0, 4.0}}}).norm(), 25.0);
  EXPECT_EQ(matrixOf({{3.0, 4.0}}).frobeniusNorm(), 5.0);
  EXPECT_EQ(Matrix(0, 4).frobeniusNorm(), 0.0);
  EXPECT_EQ(Matrix(4, 0).frobeniusNorm(), 0.0);
  EXPECT_EQ(matrixOf({{{3.0, 4.0}}}).scalar(), Complex(3.0, 4.0));
}

TEST(Matrix, FindsTheFirstOfTheLargestElements) {
  EXPECT_EQ(matrixOf({{-3.0, {0.0, 3.0}}}).getMaximumValue(), -3.0);
  EXPECT_EQ(matrixOf({{1.0, 1.0}, {{0.0, 7.0}, -7.0}}).getMaximumValue(), Complex(0.0, 7.0));
  EXPECT_EQ(Matrix(3, 3).getMaximumValue(), 0.0);
  EXPECT_EQ(Matrix().getMaximumValue(), 0.0);
  const Matrix m = matrixOf({{1.0, 5.0, {0.0, 5.0}}, {1e200, -2e200, 0.0}});
  EXPECT_EQ(m.getMaximumValueIndexInRow(0), 1);
  EXPECT_EQ(m.getMaximumValueIndexInRow(1), 1);
  EXPECT_EQ(m.getMaximumValueIndexInColumn(0), 1);
  EXPECT_EQ(matrixOf({{1.0}, {{0.0, 5.0}}, {5.0}}).getMaximumValueIndexInColumn(0), 1);

  EXPECT_EQ(Matrix(2, 0).getMaximumValueIndexInRow(1), 0);
  EXPECT_EQ(Matrix(0, 2).getMaximumValueIndexInColumn(1), 0);

  // NaN is never larger: it wins an index search only by standing first.
  EXPECT_EQ(matrixOf({{NOT_A_NUMBER, 1.0, NOT_A_NUMBER}}).getMaximumValue(), 1.0);
  EXPECT_EQ(matrixOf({{NOT_A_NUMBER, 1.0}}).getMaximumValueIndexInRow(0), 0);
  EXPECT_EQ(matrixOf({{1.0, NOT_A_NUMBER, 2.0}}).getMaximumValueIndexInRow(0), 2);
  EXPECT_EQ(matrixOf({{NOT_A_NUMBER}, {INFINITE}}).getMaximumValueIndexInColumn(0), 0);
}

// ---- text

/// Everything that print writes to its stream.
std::string written(const std::function<void(FILE*)>& print) {
  char* text = nullptr;
  std::size_t length = 0;
  FILE* stream = open_memstream(&text, &length);
  print(stream);
  fclose(stream);
  std::string result(text, length);
  std::free(text);
  return result;
}

TEST(Matrix, DumpsExactText) {
  const Matrix m = matrixOf({{{1.0, 2.0}, -0.5}, {{0.0, -1e-7}, {1234567.0, -3.25}}});
  EXPECT_EQ(written([&](FILE* f) { m.getRow(0).dump(f, "W"); }),
            "W: rows=1, cols=2\n[ 1.000000+2.000000i -0.500000+0.000000i \n]\n");
  EXPECT_EQ(written([&](FILE* f) { m.dump(f, "W[%d] of %s", 7, "bin"); }),
            "W[7] of bin: rows=2, cols=2\n"
            "[ 1.000000+2.000000i -0.500000+0.000000i \n"
            "0.000000-0.000000i 1234567.000000-3.250000i \n]\n");
  EXPECT_EQ(written([](FILE* f) { Matrix().dump(f, "empty"); }), "empty: rows=0, cols=0\n[ ]\n");
  EXPECT_EQ(written([](FILE* f) { Matrix(2, 0).dump(f, "%s", ""); }),
            ": rows=2, cols=0\n[ \n\n]\n");
  char label[64];
  std::snprintf(label, sizeof label, "Matrix: %p: rows=2, cols=2\n[ ",
                static_cast<void const*>(&m));
  EXPECT_THAT(written([&](FILE* f) { m.dump(f); }), testing::StartsWith(label));
}

}  // namespace
