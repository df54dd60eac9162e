#include "geometry/TransformFunctionDatabase.h"

#include <cmath>
#include <cstddef>
#include <vector>

namespace BF {

namespace {

double distance(const Location& a, const Location& b) {
  const double dx = a.x - b.x;
  const double dy = a.y - b.y;
  const double dz = a.z - b.z;
  return std::sqrt(dx * dx + dy * dy + dz * dz);
}

/// Entry 0 seeds the search and only a strictly smaller distance replaces the best, so the lowest
/// index of equals wins and a distance that is NaN is never chosen over the seed.
template <typename Entry>
int nearestIndex(const std::vector<Entry>& locations, const Location& point) {
  if (locations.empty()) return 0;
  std::size_t best = 0;
  double bestDistance = distance(locations[0], point);
  for (std::size_t i = 1; i < locations.size(); ++i) {
    const double d = distance(locations[i], point);
    if (bestDistance > d) {
      best = i;
      bestDistance = d;
    }
  }
  return static_cast<int>(best);
}

}  // namespace

int TransformFunctionDatabase::findNearestSourceIndex(const SourceLocation& point) const {
  return nearestIndex(sourceLocations, point);
}

int TransformFunctionDatabase::findNearestSourceIndex(const MicLocation& point) const {
  return nearestIndex(micLocations, point);
}

}  // namespace BF
