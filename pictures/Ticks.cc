#include "pictures/Ticks.h"

#include <cmath>

namespace {

/// The smallest round step of at least `least`, least > 0.
double roundStep(double least) {
  const double power = std::pow(10.0, std::floor(std::log10(least)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (factor * power >= least * (1.0 - 1e-9)) return factor * power;
  }
  return 10.0 * power;
}

}  // namespace

std::vector<double> ticks(double first, double last, int most) {
  std::vector<double> result;
  if (!(first < last) || !std::isfinite(last - first)) return result;
  const double step = roundStep((last - first) / (most - 1));
  const double tolerance = 1e-9 * step;
  for (double n = std::ceil((first - tolerance) / step); n * step <= last + tolerance; ++n) {
    result.push_back(n * step + 0.0);  // no "-0"
  }
  return result;
}
