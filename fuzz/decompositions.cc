// Decompositions of small matrices of any doubles; where the elements are of moderate size, their
// laws hold.
#include <algorithm>
#include <cmath>
#include <limits>

#include "fuzz/Fuzzing.h"
#include "matrix/Matrix.h"
#include "tests/reference/Dense.h"

namespace {

using BF::Matrix;
using namespace reference;

constexpr int MAX_SIZE = 8;
// The singular-value decomposition stops at 1.5e-7 of the norm per off-diagonal element, and takes
// vectors of norm 3.9e-16 for zero.
constexpr double ACCURACY = 1e-6;
constexpr double FLOOR = 4e-15;
constexpr double ROUNDING = 1e-11;

double element(FuzzedDataProvider& choices) {
  constexpr double DOUBLE_MAX = std::numeric_limits<double>::max();
  switch (choices.ConsumeIntegralInRange<int>(0, 7)) {
    case 0:
      return 0.0;
    case 1:
      return choices.ConsumeIntegralInRange<int>(-3, 3);
    case 2:
    case 3:
      return choices.ConsumeIntegral<std::int16_t>() / 1024.0;
    case 4:
      return 1.0 + choices.ConsumeIntegral<std::int8_t>() * 1e-16;
    case 5:
      return std::pow(10.0, choices.ConsumeIntegralInRange<int>(-40, 40));
    case 6:
      return choices.ConsumeFloatingPoint<double>();
    default:
      return choices.PickValueInArray({HUGE_VAL, -HUGE_VAL, std::nan(""), DOUBLE_MAX, -DOUBLE_MAX,
                                       1e200, 1e154, 1e-154, 1e-308, 5e-324, -0.0});
  }
}

Matrix matrix(FuzzedDataProvider& choices, int rows, int columns) {
  Matrix result(rows, columns);
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < columns; ++c) {
      const double re = element(choices);
      result.setElementAt(r, c, re, element(choices));
    }
  }
  return result;
}

bool isModerate(const Dense& a) {
  return std::all_of(a.z.begin(), a.z.end(), [](const Complex& z) {
    return std::isfinite(z.real()) && std::isfinite(z.imag()) && std::abs(z) < 1e100L &&
           (std::abs(z) == 0 || std::abs(z) > 1e-100L);
  });
}

bool isUnitary(const Dense& u) {
  return frobenius(adjoint(u) * u - identity(u.columns)) <= ROUNDING;
}

std::vector<double> realColumn(const Matrix& column) {
  std::vector<double> values;
  for (int i = 0; i < column.getRowCount(); ++i) values.push_back(column.getElementAt(i, 0).real());
  return values;
}

void checkSingularValues(const Matrix& A) {
  Matrix U, S, V;
  A.singularValueDecomposition(U, S, V);
  const Dense a = fromMatrix(A);
  if (!isModerate(a)) return;
  const std::vector<double> s = realColumn(S);
  require(std::is_sorted(s.rbegin(), s.rend()) && s.back() >= 0.0, "values decrease to 0 or more");
  require(isUnitary(fromMatrix(U)) && isUnitary(fromMatrix(V)), "singular vectors are unitary");
  const Dense product = fromMatrix(U) * diagonal(a.rows, a.columns, s) * adjoint(fromMatrix(V));
  require(frobenius(product - a) <= ACCURACY * frobenius(a) + FLOOR, "A = U · S · Vᴴ");
}

// With A = Â + E, where  is the product that the pseudo-inverse was made of: AXA − A and XAX − X
// are made of E, of X and of the singular values up to 1e-10 that are dropped.
void checkPseudoInverse(const Matrix& A) {
  const Dense x = fromMatrix(A.pseudoInverse());
  const Dense a = fromMatrix(A);
  require(x.rows == a.columns && x.columns == a.rows, "A⁺ has the shape of Aᴴ");
  if (!isModerate(a)) return;
  const double X = frobenius(x);
  const double E = ACCURACY * frobenius(a) + FLOOR;
  require(frobenius(a * x * a - a) <= 3 * E + E * E * X + 1e-9, "A · A⁺ · A = A");
  require(frobenius(x * a * x - x) <= E * X * X + ROUNDING * X, "A⁺ · A · A⁺ = A⁺");
  require(frobenius(a * x - adjoint(a * x)) <= 2 * E * X, "A · A⁺ is Hermitian");
}

void checkEigenValues(const Matrix& A) {
  Matrix values, vectors;
  A.eigenValues(values, vectors);
  Dense a = fromMatrix(A);
  if (!isModerate(a)) return;
  for (int r = 0; r < a.rows; ++r) {  // the upper triangle is what was read
    a(r, r) = a(r, r).real();
    for (int c = 0; c < r; ++c) a(r, c) = std::conj(a(c, r));
  }
  const Dense v = fromMatrix(vectors);
  const Dense d = diagonal(a.rows, a.rows, realColumn(values));
  require(isUnitary(v), "eigenvectors are unitary");
  require(frobenius(a * v - v * d) <= ROUNDING * frobenius(a), "A · V = V · D");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider choices(data, size);
  const int rows = choices.ConsumeIntegralInRange(1, MAX_SIZE);
  const int columns = choices.ConsumeIntegralInRange(1, MAX_SIZE);
  const Matrix A = matrix(choices, rows, columns);
  const Matrix B = matrix(choices, rows, rows);
  checkSingularValues(A);
  checkPseudoInverse(A);
  checkEigenValues(B);
  Matrix U, S, V;
  A.generalizedSingularValues(B, U, S, V);
  require(U.getRowCount() == rows && V.getRowCount() == columns, "factors have the shapes of A");
  B.generalizedEigenValues(A * A.transposed(true) + Matrix::I(rows), S, V);
  B.transposed(true).generalizedEigenValues(B, S, V);
  require(S.getRowCount() == rows && V.getColumnCount() == rows, "n values and vectors");
  return 0;
}
