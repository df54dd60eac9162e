#include "separation/Level.h"

#include <algorithm>
#include <cmath>

namespace Separation {

void Level::add(const std::complex<float>* spectra, std::size_t count) {
  double sum = 0.0;
  for (std::size_t i = 0; i < count; ++i) sum += std::norm(std::complex<double>(spectra[i]));
  const double p = sum / static_cast<double>(count);
  if (!(p > 0.0) || !std::isfinite(p)) return;
  ++n;
  const double w = std::max(1.0 / static_cast<double>(n), 1.0 / FRAMES);
  P = n == 1 ? p : (1.0 - w) * P + w * std::min(p, RISE * P);
}

float Level::gain() const { return n > 0 ? static_cast<float>(std::sqrt(POWER / P)) : 1.0F; }

}  // namespace Separation
