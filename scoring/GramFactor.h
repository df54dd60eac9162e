#pragma once

#include <cstddef>
#include <functional>
#include <vector>

/// Cholesky factor of a Gram matrix G (real, symmetric, positive semi-definite) whose signals may
/// depend on one another: a signal that those before it describe up to rounding is left out.
class GramFactor {
 public:
  /// `entry(i, j)` gives G(i, j) for j ≤ i < size.
  GramFactor(std::size_t size, const std::function<double(std::size_t, std::size_t)>& entry);

  /// Share of signal i's energy that the signals before it cannot describe, 0 … 1.
  double newEnergy(std::size_t i) const { return shares[i]; }

  /// Coefficients c with G · c = b, which make Σ c_i · signal_i the projection of the signal that
  /// has the inner products b with them; 0 for the signals left out.
  std::vector<double> solve(std::vector<double> b) const;

 private:
  const double* row(std::size_t i) const { return lower.data() + i * (i + 1) / 2; }

  std::vector<double> lower;  // row by row up to the diagonal
  std::vector<double> shares;
  std::vector<bool> kept;
};
