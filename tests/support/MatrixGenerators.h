#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <vector>

#include "matrix/Matrix.h"
#include "tests/reference/Dense.h"

namespace support {

/// A matrix written out: rows of elements.
inline BF::Matrix matrixOf(
    std::initializer_list<std::initializer_list<std::complex<double>>> elements) {
  const int columns = elements.size() == 0 ? 0 : static_cast<int>(elements.begin()->size());
  BF::Matrix result(static_cast<int>(elements.size()), columns);
  int r = 0;
  for (const auto& row : elements) {
    int c = 0;
    for (const auto& element : row) result.setElementAt(r, c++, element);
    ++r;
  }
  return result;
}

/// Kinds of spectra (singular or eigenvalues, decreasing, largest 1) that decompositions find hard.
enum class Spectrum { EQUAL, RANK_ONE, HALF_ZERO, GRADED, CLUSTERED, PAIRS, ALL_ZERO };
inline constexpr Spectrum ALL_SPECTRA[] = {
    Spectrum::EQUAL,     Spectrum::RANK_ONE, Spectrum::HALF_ZERO, Spectrum::GRADED,
    Spectrum::CLUSTERED, Spectrum::PAIRS,    Spectrum::ALL_ZERO};

/// count values of a kind. What is not zero is at least smallest.
inline std::vector<double> spectrumOf(Spectrum kind, int count, double smallest = 1e-6) {
  std::vector<double> values(count, 0.0);
  for (int i = 0; i < count; ++i) {
    const double fraction = count > 1 ? static_cast<double>(i) / (count - 1) : 0.0;
    switch (kind) {
      case Spectrum::EQUAL:
        values[i] = 1.0;
        break;
      case Spectrum::RANK_ONE:
        values[i] = i == 0 ? 1.0 : 0.0;
        break;
      case Spectrum::HALF_ZERO:
        values[i] = 2 * i < count ? 1.0 - 0.9 * fraction : 0.0;
        break;
      case Spectrum::GRADED:
        values[i] = std::pow(smallest, fraction);
        break;
      case Spectrum::CLUSTERED:
        values[i] = 2 * i < count ? 1.0 - 1e-9 * i : 0.5 - 1e-12 * i;
        break;
      case Spectrum::PAIRS:
        values[i] = 1.0 / (1 + i / 2);
        break;
      case Spectrum::ALL_ZERO:
        break;
    }
  }
  return values;
}

/// Random matrices from a fixed seed.
class Generator {
 public:
  explicit Generator(std::uint64_t seed) : engine(seed) {}

  /// A whole number in lowest … highest.
  int integer(int lowest, int highest) {
    return std::uniform_int_distribution<int>(lowest, highest)(engine);
  }
  double uniform(double lowest, double highest) {
    return std::uniform_real_distribution<double>(lowest, highest)(engine);
  }
  bool chance(double probability) { return uniform(0.0, 1.0) < probability; }

  std::complex<double> gaussian() {
    const double re = normal(engine);
    return {re, normal(engine)};
  }

  /// Independent complex normal elements.
  BF::Matrix gaussian(int rows, int columns) {
    BF::Matrix result(rows, columns);
    for (int r = 0; r < rows; ++r) {
      for (int c = 0; c < columns; ++c) result.setElementAt(r, c, gaussian());
    }
    return result;
  }

  /// Small whole numbers, with which sums and products are exact.
  BF::Matrix integers(int rows, int columns) {
    BF::Matrix result(rows, columns);
    for (int r = 0; r < rows; ++r) {
      for (int c = 0; c < columns; ++c) result.setElementAt(r, c, integer(-9, 9), integer(-9, 9));
    }
    return result;
  }

  reference::Dense unitary(int n) {
    return reference::orthonormalised(reference::fromMatrix(gaussian(n, n)));
  }

  /// U · diag(values) · Vᴴ with random unitary U and V: its singular values are the given ones.
  BF::Matrix withSingularValues(int rows, int columns, const std::vector<double>& values) {
    const reference::Dense U = unitary(rows);
    const reference::Dense V = unitary(columns);
    return reference::toMatrix(U * reference::diagonal(rows, columns, values) *
                               reference::adjoint(V));
  }

  /// U · diag(values) · Uᴴ with a random unitary U, Hermitian to the last bit.
  BF::Matrix hermitian(const std::vector<double>& values) {
    const int n = static_cast<int>(values.size());
    const reference::Dense U = unitary(n);
    BF::Matrix A =
        reference::toMatrix(U * reference::diagonal(n, n, values) * reference::adjoint(U));
    for (int r = 0; r < n; ++r) {
      A.setElementAt(r, r, A.getElementAt(r, r).real(), 0.0);
      for (int c = 0; c < r; ++c) A.setElementAt(r, c, std::conj(A.getElementAt(c, r)));
    }
    return A;
  }

  /// Gaussian rows and columns, each multiplied by a power of ten within ± exponent.
  BF::Matrix badlyScaled(int rows, int columns, double exponent) {
    BF::Matrix result = gaussian(rows, columns);
    std::vector<double> columnScale(columns);
    for (double& s : columnScale) s = uniform(-exponent / 2, exponent / 2);
    for (int r = 0; r < rows; ++r) {
      const double rowScale = uniform(-exponent / 2, exponent / 2);
      for (int c = 0; c < columns; ++c) {
        const double factor = std::pow(10.0, rowScale + columnScale[c]);
        result.setElementAt(r, c, result.getElementAt(r, c) * factor);
      }
    }
    return result;
  }

 private:
  std::mt19937_64 engine;
  std::normal_distribution<double> normal;
};

}  // namespace support
