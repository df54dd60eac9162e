#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <ostream>
#include <vector>

#include "matrix/Matrix.h"

namespace BF {

/// How GoogleTest prints a matrix.
inline void PrintTo(const Matrix& matrix, std::ostream* out) {
  *out << matrix.getRowCount() << " x " << matrix.getColumnCount() << " [";
  for (int r = 0; r < matrix.getRowCount(); ++r) {
    for (int c = 0; c < matrix.getColumnCount(); ++c) *out << ' ' << matrix.getElementAt(r, c);
    *out << (r + 1 < matrix.getRowCount() ? " ;" : " ");
  }
  *out << "]";
}

}  // namespace BF

namespace support {

/// Relative tolerance for results that are exact up to the rounding of double: sums and products of
/// up to 64 terms, chained some ten times, at 1.1e-16 each, with a factor ten to spare. Multiply it
/// by the norm of what is compared.
constexpr double ROUNDING = 1e-12;

/// How far the product of an m × n matrix's singular factors may be from the matrix, relative to
/// its norm. The decomposition drops off-diagonal elements of its bidiagonal form up to 1.5e-7
/// times the largest sum of two neighbours in a column, a sum that is at most √2 · ‖A‖, and there
/// are min(m, n) − 1 of them. U and V stay unitary up to rounding.
inline double svdAccuracy(int m, int n) {
  return 1.5001e-7 * std::sqrt(2.0 * std::max(std::min(m, n) - 1, 0)) + ROUNDING;
}

/// Same shape, and every element within an absolute tolerance of the expected one. Reports the
/// shapes, or else the first element that differs. NaN never matches, not even NaN.
MATCHER_P2(MatrixNear, expected, tolerance,
           std::string(negation ? "is not" : "is") + " within " +
               testing::PrintToString(tolerance) + " of " + testing::PrintToString(expected)) {
  const int rows = expected.getRowCount();
  const int columns = expected.getColumnCount();
  if (arg.getRowCount() != rows || arg.getColumnCount() != columns) {
    *result_listener << "whose shape is " << arg.getRowCount() << " x " << arg.getColumnCount()
                     << ", not " << rows << " x " << columns;
    return false;
  }
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < columns; ++c) {
      const std::complex<double> got = arg.getElementAt(r, c);
      const std::complex<double> want = expected.getElementAt(r, c);
      if (std::abs(got - want) <= tolerance) continue;
      *result_listener << "which differs first at (" << r << ", " << c << "): " << got << ", not "
                       << want << ", off by " << std::abs(got - want);
      return false;
    }
  }
  return true;
}

/// The same shape and equal elements.
inline auto MatrixEq(const BF::Matrix& expected) { return MatrixNear(expected, 0.0); }

/// A list of as many matrices, each within the tolerance of its counterpart.
inline auto MatricesNear(const std::vector<BF::Matrix>& expected, double tolerance) {
  std::vector<testing::Matcher<const BF::Matrix&>> each;
  for (const BF::Matrix& matrix : expected) each.push_back(MatrixNear(matrix, tolerance));
  return testing::ElementsAreArray(each);
}

inline auto MatricesEq(const std::vector<BF::Matrix>& expected) {
  return MatricesNear(expected, 0.0);
}

/// Every element has finite parts.
MATCHER(IsFinite, negation ? "has an element that is not finite" : "has finite elements only") {
  for (int r = 0; r < arg.getRowCount(); ++r) {
    for (int c = 0; c < arg.getColumnCount(); ++c) {
      const std::complex<double> z = arg.getElementAt(r, c);
      if (std::isfinite(z.real()) && std::isfinite(z.imag())) continue;
      *result_listener << "which holds " << z << " at (" << r << ", " << c << ")";
      return false;
    }
  }
  return true;
}

}  // namespace support
