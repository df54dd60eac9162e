#include "pictures/DirectionRing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <tuple>

#include "dsp/DataError.h"

namespace {

constexpr std::size_t MAX_POSITIONS = 12;
constexpr std::size_t MIN_POSITIONS = 3;

/// "0", or "-4 … 4" when they differ by more than rounding.
std::string range(double least, double most, double rounding) {
  const auto rounded = [&](double x) { return std::round(x / rounding) * rounding + 0.0; };
  const std::string first = fmt::format("{:.4g}", rounded(least));
  const std::string last = fmt::format("{:.4g}", rounded(most));
  return first == last ? first : first + " … " + last;
}

/// The nearest to the elevation and then to the distance of each azimuth (in tenths of a degree).
DirectionRing best(const std::vector<BF::Direction>& all, double elevation, double distance,
                   double width) {
  const auto misfit = [&](int i) {
    const BF::Direction& b = all[static_cast<std::size_t>(i)];
    return std::tuple(std::round(10.0 * std::abs(b.elevation - elevation)),
                      std::abs(b.distance - distance), i);
  };
  std::map<long, int> byAzimuth;
  for (int i = 0; i < static_cast<int>(all.size()); ++i) {
    const BF::Direction& b = all[static_cast<std::size_t>(i)];
    if (b.distance == 0.0 || std::abs(b.elevation - elevation) > width) continue;
    const long tenth = std::lround(10.0 * b.azimuth);
    const auto [found, isNew] = byAzimuth.try_emplace(tenth == -1800 ? 1800 : tenth, i);
    if (!isNew && misfit(i) < misfit(found->second)) found->second = i;
  }
  DirectionRing ring;
  for (const auto& [tenth, i] : byAzimuth) {
    ring.positions.push_back(i);
    ring.directions.push_back(all[static_cast<std::size_t>(i)]);
  }
  return ring;
}

}  // namespace

DirectionRing DirectionRing::of(const BF::TransformFunctionDatabase& database, double elevation,
                                double distance) {
  std::vector<BF::Direction> all;
  for (const BF::SourceLocation& place : database.sourceLocations)
    all.push_back(BF::directionOf(place));
  if (all.empty()) throw DataError("found no directions, expected 3 or more");
  const double nearest =
      std::min_element(all.begin(), all.end(), [&](auto& a, auto& b) {
        return std::abs(a.elevation - elevation) < std::abs(b.elevation - elevation);
      })->elevation;
  DirectionRing ring;
  for (const double width : {0.5, 2.5, 5.0}) {
    ring = best(all, nearest, distance, width);
    if (ring.positions.size() >= MAX_POSITIONS) break;
  }
  if (ring.positions.size() < MIN_POSITIONS) {
    throw DataError(fmt::format(
        "found {} of {} directions near elevation {:.1f}, which is the nearest to {:.1f} degrees, "
        "expected {} or more",
        ring.positions.size(), all.size(), nearest, elevation, MIN_POSITIONS));
  }
  return ring;
}

std::string DirectionRing::text() const {
  const auto [lowest, highest] = std::minmax_element(
      directions.begin(), directions.end(),
      [](const BF::Direction& a, const BF::Direction& b) { return a.elevation < b.elevation; });
  const auto [nearest, farthest] = std::minmax_element(
      directions.begin(), directions.end(),
      [](const BF::Direction& a, const BF::Direction& b) { return a.distance < b.distance; });
  return fmt::format("{} directions at elevation {}°, {} m", positions.size(),
                     range(lowest->elevation, highest->elevation, 0.1),
                     range(nearest->distance, farthest->distance, 0.01));
}
