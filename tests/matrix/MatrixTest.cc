#include "matrix/Matrix.h"

#include <cstdio>
#include <functional>
#include <limits>
#include <string>

#include "tests/support/ComplexMatrixMatchers.h"
#include "tests/support/MatrixGenerators.h"

namespace {

using BF::Matrix;
using Complex = std::complex<double>;

const double NAN_VALUE = std::numeric_limits<double>::quiet_NaN();

Matrix of(int rows, int columns, const std::vector<Complex>& values) {
  Matrix result(rows, columns);
  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < columns; ++j) result.setElementAt(i, j, values[i * columns + j]);
  }
  return result;
}

/// Which of the engine's exceptions action throws.
std::string thrown(const std::function<void()>& action) {
  try {
    action();
  } catch (const BF::IndexOutOfBoundException&) {
    return "index";
  } catch (const BF::MatrixSizeMismatchException&) {
    return "size";
  } catch (const BF::NotVectorException&) {
    return "vector";
  } catch (const BF::NotScalarException&) {
    return "scalar";
  }
  return "none";
}

TEST(Matrix, ChecksInTheirOrder) {
  Matrix a = MatrixGenerator(1).matrix(2, 3);
  const Matrix before = a;
  const std::pair<std::function<void()>, const char*> cases[] = {
      {[&] { (void)a.getElementAt(2, 0); }, "index"},
      {[&] { (void)a.getElementAt(0, 3); }, "index"},
      {[&] { (void)a.getElementAt(1, -1); }, "none"},  // element (0, 2)
      {[&] { a.setElementAt(2, 0, 1.0); }, "index"},
      {[&] { a.setElementAt(0, 3, 1.0, 2.0); }, "index"},
      {[&] { (void)a.getColumn(3); }, "index"},
      {[&] { (void)a.getRow(2); }, "index"},
      {[&] { a.setColumn(3, Matrix(5, 5)); }, "index"},
      {[&] { a.setColumn(0, Matrix(3, 2)); }, "size"},
      {[&] { a.setColumn(0, Matrix(2, 2)); }, "vector"},
      {[&] { a.setRow(2, Matrix(5, 5)); }, "index"},
      {[&] { a.setRow(0, Matrix(2, 2)); }, "size"},
      {[&] { a.setRow(0, Matrix(2, 3)); }, "vector"},
      {[&] { (void)a.getSubmatrix(0, 0, 2, 3); }, "none"},
      {[&] { (void)a.getSubmatrix(1, 0, 2, 1); }, "index"},
      {[&] { (void)a.getSubmatrix(-1, 0, 1, 1); }, "index"},
      {[&] { (void)a.getSubmatrix(0, -1, 1, 1); }, "index"},
      {[&] { (void)a.getSubmatrix(0, 1, 1, 3); }, "index"},
      {[&] { (void)a.getSubmatrix(2, 3, 0, 0); }, "none"},
      {[&] { a.setSubmatrix(1, 0, Matrix(2, 1)); }, "index"},
      {[&] { a.setSubmatrix(0, -1, Matrix(1, 1)); }, "index"},
      {[&] { (void)a.diagonalMatrix(); }, "vector"},
      {[&] { (void)a.multiplied(a); }, "size"},
      {[&] { (void)(a * a); }, "size"},
      {[&] { (void)a.elementwiseDivided(Matrix(3, 2)); }, "size"},
      {[&] { (void)a.elementwiseMultiplied(Matrix(2, 2)); }, "size"},
      {[&] { (void)a.elementwiseFMultiplied(Matrix(3, 3)); }, "size"},
      {[&] { (void)a.norm(); }, "vector"},
      {[&] { (void)a.scalar(); }, "scalar"},
      {[&] { (void)Matrix(1, 2).scalar(); }, "scalar"},
      {[&] { (void)a.getMaximumValueIndexInRow(2); }, "index"},
      {[&] { (void)a.getMaximumValueIndexInColumn(3); }, "index"},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_EQ(thrown(cases[i].first), cases[i].second) << "case " << i;
  }
  EXPECT_THAT(a, IsExactly(before));
}

TEST(Matrix, SumsOfDifferentShapesEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(Matrix(2, 3) + Matrix(3, 3), "terminate");
  EXPECT_DEATH(Matrix(2, 3) - Matrix(2, 2), "terminate");
  EXPECT_DEATH(
      {
        try {
          (void)(Matrix(1, 1) + Matrix(2, 1));
        } catch (...) {
        }
      },
      "terminate");
}

TEST(Matrix, IsAValue) {
  MatrixGenerator make(2);
  const Matrix original = make.matrix(3, 2);
  Matrix copy(original);
  copy.setElementAt(0, 0, 9.0, 9.0);
  EXPECT_THAT(original, IsExactly(MatrixGenerator(2).matrix(3, 2)));
  Matrix& same = copy;
  copy = same;
  EXPECT_EQ(copy.getElementAt(0, 0), Complex(9.0, 9.0));
  Matrix empty;
  EXPECT_EQ(empty.getRowCount(), 0);
  EXPECT_EQ(empty.getColumnCount(), 0);
  std::swap(copy, empty);
  EXPECT_EQ(copy.getRowCount(), 0);
  EXPECT_EQ(empty.getElementAt(0, 0), Complex(9.0, 9.0));
  copy = original;
  EXPECT_THAT(copy, IsExactly(original));
}

TEST(Matrix, RowsColumnsBlocksAndDiagonals) {
  const Matrix a = of(2, 3, {1, 2, 3, 4, 5, {6, 7}});
  EXPECT_THAT(a.getColumn(2), IsExactly(of(2, 1, {3, {6, 7}})));
  EXPECT_THAT(a.getRow(1), IsExactly(of(1, 3, {4, 5, {6, 7}})));
  EXPECT_THAT(a.getSubmatrix(0, 1, 2, 2), IsExactly(of(2, 2, {2, 3, 5, {6, 7}})));
  Matrix b = a;
  b.setColumn(0, of(2, 1, {8, 9}));
  b.setRow(0, of(1, 3, {7, 7, 7}));
  b.setSubmatrix(0, 1, of(2, 1, {0, 1}));
  EXPECT_THAT(b, IsExactly(of(2, 3, {7, 0, 7, 9, 1, {6, 7}})));
  EXPECT_THAT(a.diagonalElements(), IsExactly(of(2, 1, {1, 5})));
  EXPECT_THAT(of(3, 1, {1, 2, 3}).diagonalMatrix(),
              IsExactly(of(3, 3, {1, 0, 0, 0, 2, 0, 0, 0, 3})));
  EXPECT_THAT(of(1, 2, {1, 2}).diagonalMatrix(), IsExactly(of(2, 2, {1, 0, 0, 2})));
  EXPECT_THAT(of(1, 1, {4}).diagonalMatrix(), IsExactly(of(1, 1, {4})));
  EXPECT_THAT(Matrix::I(2), IsExactly(of(2, 2, {1, 0, 0, 1})));
  EXPECT_THAT(Matrix::O(2, 1), IsExactly(Matrix(2, 1)));
}

TEST(Matrix, TransposesAndConjugates) {
  const Matrix a = of(1, 2, {{1, 1}, 2});
  EXPECT_THAT(a.transposed(true), IsExactly(of(2, 1, {{1, -1}, 2})));
  EXPECT_THAT(a.transposed(false), IsExactly(of(2, 1, {{1, 1}, 2})));
  Matrix b = a;
  EXPECT_EQ(&b.transpose(true), &b);
  EXPECT_EQ(&b.conjugate(), &b);
  EXPECT_THAT(b, IsExactly(a.transposed(false)));
}

TEST(Matrix, ProductsMatchPlainLoops) {
  MatrixGenerator make(3);
  for (int round = 0; round < 100; ++round) {
    const int m = make.integer(0, 7);
    const int n = make.integer(0, 7);
    const int p = make.integer(0, 7);
    const Matrix a = make.matrix(m, n);
    const Matrix b = make.matrix(n, p);
    Matrix expected(m, p);
    for (int i = 0; i < m; ++i) {
      for (int j = 0; j < p; ++j) {
        double re = 0.0;
        double im = 0.0;
        for (int k = 0; k < n; ++k) {
          const Complex x = a.getElementAt(i, k);
          const Complex y = b.getElementAt(k, j);
          re += x.real() * y.real() - x.imag() * y.imag();
          im += x.real() * y.imag() + x.imag() * y.real();
        }
        expected.setElementAt(i, j, re, im);
      }
    }
    EXPECT_THAT(a * b, IsExactly(expected));  // same order of operations, so the same bits
    Matrix c = a;
    EXPECT_THAT(c.multiply(b), IsExactly(expected));
    EXPECT_THAT((a + a) - a, IsNear(a, ROUNDING));
    EXPECT_THAT(Complex(0, 2) * a, IsExactly(a * Complex(0, 2)));
  }
  // Infinities follow complex arithmetic, not the plain formula that would give NaN.
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_TRUE(std::isinf((of(1, 1, {{inf, inf}}) * of(1, 1, {1})).getElementAt(0, 0).real()));
}

TEST(Matrix, ElementwiseOperationsAndReductions) {
  const Matrix a = of(1, 1, {{1, 1}});
  EXPECT_THAT(a.elementwiseFMultiplied(a), IsExactly(of(1, 1, {2})));
  EXPECT_THAT(a.elementwiseMultiplied(a), IsExactly(of(1, 1, {{0, 2}})));
  EXPECT_THAT(a.elementwiseDivided(of(1, 1, {{0, 1}})), IsExactly(of(1, 1, {{1, -1}})));
  const Matrix b = of(1, 2, {3, {0, 4}});
  EXPECT_THAT(b.elementwiseAbs(), IsExactly(of(1, 2, {3, 4})));
  EXPECT_THAT(b.absoluteValues(), IsExactly(of(1, 2, {3, 4})));
  EXPECT_THAT(b.elementwiseNorm(), IsExactly(of(1, 2, {9, 16})));
  EXPECT_THAT(of(1, 2, {-4, {0, 2}}).elementwiseSqrt(),
              IsNear(of(1, 2, {{0, 2}, {1, 1}}), ROUNDING));
  EXPECT_EQ(b.getElementSum(), Complex(3, 4));
  EXPECT_EQ(b.norm(), Complex(25, 0));
  EXPECT_EQ(b.transposed(false).norm(), Complex(25, 0));
  EXPECT_EQ(b.frobeniusNorm(), Complex(5, 0));
  EXPECT_EQ(Matrix(0, 3).frobeniusNorm(), Complex(0, 0));
  EXPECT_EQ(of(1, 1, {{2, 3}}).scalar(), Complex(2, 3));
  // The moduli neither overflow nor underflow.
  EXPECT_THAT(of(1, 2, {{3e200, 4e200}, {3e-200, 4e-200}}).elementwiseAbs(),
              IsNear(of(1, 2, {5e200, 5e-200}), 1e185));
}

TEST(Matrix, MaximaAreTheFirstOfEqualsAndNanNeverReplaces) {
  EXPECT_EQ(of(1, 2, {-3, {0, 3}}).getMaximumValue(), Complex(-3, 0));
  EXPECT_EQ(Matrix(2, 2).getMaximumValue(), Complex(0, 0));
  EXPECT_EQ(Matrix().getMaximumValue(), Complex(0, 0));
  EXPECT_EQ(of(1, 3, {1, 5, 5}).getMaximumValueIndexInRow(0), 1);
  EXPECT_EQ(of(3, 1, {1, {0, 5}, 5}).getMaximumValueIndexInColumn(0), 1);
  EXPECT_EQ(Matrix(2, 0).getMaximumValueIndexInRow(0), 0);
  EXPECT_EQ(Matrix(0, 2).getMaximumValueIndexInColumn(0), 0);
  const Matrix nan = of(1, 3, {NAN_VALUE, 5, NAN_VALUE});
  EXPECT_EQ(nan.getMaximumValue(), Complex(5, 0));
  EXPECT_EQ(nan.getMaximumValueIndexInRow(0), 0);  // the seed is NaN, nothing is larger
  EXPECT_EQ(nan.getSubmatrix(0, 1, 1, 2).getMaximumValueIndexInRow(0), 0);
}

std::string dumped(const std::function<void(FILE*)>& dump) {
  char* text = nullptr;
  std::size_t size = 0;
  FILE* stream = open_memstream(&text, &size);
  dump(stream);
  std::fclose(stream);
  const std::string result(text, size);
  std::free(text);
  return result;
}

TEST(Matrix, DumpsItsTextExactly) {
  const Matrix a = of(1, 2, {{1, 2}, {-0.5, 0}});
  EXPECT_EQ(dumped([&](FILE* f) { a.dump(f, "W"); }),
            "W: rows=1, cols=2\n[ 1.000000+2.000000i -0.500000+0.000000i \n]\n");
  EXPECT_EQ(dumped([&](FILE* f) { Matrix(2, 1).dump(f, "%s%d", "bin ", 3); }),
            "bin 3: rows=2, cols=1\n[ 0.000000+0.000000i \n0.000000+0.000000i \n]\n");
  EXPECT_EQ(dumped([&](FILE* f) { Matrix().dump(f, "E"); }), "E: rows=0, cols=0\n[ ]\n");
  EXPECT_THAT(dumped([&](FILE* f) { a.dump(f); }), testing::StartsWith("Matrix: 0x"));
}

}  // namespace
