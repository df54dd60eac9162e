#include "separation/refine/Masks.h"

#include <algorithm>
#include <cmath>
#include <complex>

namespace Separation {

bool powerShares(const BF::Matrix& Y, const std::vector<std::size_t>& rows, std::size_t k,
                 std::vector<double>& masks) {
  const auto K = static_cast<std::size_t>(Y.getColumnCount());
  masks.resize(rows.size());
  double total = 0.0;
  for (std::size_t s = 0; s < rows.size(); ++s) {
    masks[s] = std::norm(Y.data()[rows[s] * K + k]);
    total += masks[s];
  }
  if (!(total > 0.0) || !std::isfinite(total)) return false;
  for (double& mask : masks) mask /= total;
  return true;
}

void applyMasks(double floor, const std::vector<std::size_t>& rows, std::vector<double>& masks,
                BF::Matrix& Y) {
  const auto K = static_cast<std::size_t>(Y.getColumnCount());
  for (std::size_t k = 0; k < K; ++k) {
    if (!powerShares(Y, rows, k, masks)) continue;
    for (std::size_t s = 0; s < rows.size(); ++s) {
      Y.data()[rows[s] * K + k] *= std::max(floor, masks[s]);
    }
  }
}

}  // namespace Separation
