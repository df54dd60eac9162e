#include "scoring/GramFactor.h"

#include <cmath>

namespace {

// Rounding in the products of a few hundred thousand samples and in the elimination stays well
// below this share of a signal's energy.
constexpr double SMALLEST_SHARE = 1e-11;

/// Σ a(k) · b(k), in four sums that can run side by side.
double dot(const double* a, const double* b, std::size_t count) {
  double sums[4] = {};
  std::size_t k = 0;
  for (; k + 4 <= count; k += 4) {
    for (std::size_t lane = 0; lane < 4; ++lane) sums[lane] += a[k + lane] * b[k + lane];
  }
  for (; k < count; ++k) sums[0] += a[k] * b[k];
  return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

}  // namespace

// G = L · Lᵀ: L(i, j) = (G(i, j) − Σ_{k<j} L(i, k) · L(j, k)) / L(j, j), and
// L(i, i)² = G(i, i) − Σ_{k<i} L(i, k)² is the energy that is new in signal i.
GramFactor::GramFactor(std::size_t size,
                       const std::function<double(std::size_t, std::size_t)>& entry)
    : lower(size * (size + 1) / 2), shares(size), kept(size) {
  for (std::size_t i = 0; i < size; ++i) {
    double* current = lower.data() + i * (i + 1) / 2;
    for (std::size_t j = 0; j < i; ++j) {
      if (kept[j]) current[j] = (entry(i, j) - dot(current, row(j), j)) / row(j)[j];
    }
    const double energy = entry(i, i);
    const double added = energy - dot(current, current, i);
    shares[i] = energy > 0.0 && added > 0.0 ? added / energy : 0.0;
    kept[i] = shares[i] > SMALLEST_SHARE;
    current[i] = kept[i] ? std::sqrt(added) : 0.0;
  }
}

std::vector<double> GramFactor::solve(std::vector<double> b) const {
  // L · z = b, then Lᵀ · c = z.
  for (std::size_t i = 0; i < b.size(); ++i) {
    b[i] = kept[i] ? (b[i] - dot(row(i), b.data(), i)) / row(i)[i] : 0.0;
  }
  for (std::size_t i = b.size(); i-- > 0;) {
    if (!kept[i]) continue;
    b[i] /= row(i)[i];
    for (std::size_t j = 0; j < i; ++j) b[j] -= row(i)[j] * b[i];
  }
  return b;
}
