#include "pictures/DirectionSet.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <tuple>
#include <utility>

#include "dsp/DataError.h"

namespace {

constexpr std::size_t MAX_POSITIONS = 12;
constexpr std::size_t MIN_POSITIONS = 3;
constexpr double MIN_HEIGHT = 20.0;  // degrees of elevation that a sphere covers

/// "0", or "-4 … 4" when they differ by more than rounding.
std::string range(double least, double most, double rounding) {
  const auto rounded = [&](double x) { return std::round(x / rounding) * rounding + 0.0; };
  const std::string first = fmt::format("{:.4g}", rounded(least));
  const std::string last = fmt::format("{:.4g}", rounded(most));
  return first == last ? first : first + " … " + last;
}

std::vector<BF::Direction> directionsOf(const BF::TransformFunctionDatabase& database) {
  std::vector<BF::Direction> all;
  for (const BF::SourceLocation& place : database.sourceLocations)
    all.push_back(BF::directionOf(place));
  if (all.empty()) throw DataError("found no directions, expected 3 or more");
  return all;
}

/// Tenths of a degree, −180 being 180.
int tenthOf(double azimuth) {
  const int tenth = static_cast<int>(std::lround(10.0 * azimuth));
  return tenth == -1800 ? 1800 : tenth;
}

template <typename Key>
DirectionSet listed(const std::vector<BF::Direction>& all, const std::map<Key, int>& numbers) {
  DirectionSet set;
  for (const auto& [key, i] : numbers) {
    set.positions.push_back(i);
    set.directions.push_back(all[static_cast<std::size_t>(i)]);
  }
  return set;
}

/// The nearest to the elevation and then to the distance of each azimuth (in tenths of a degree).
DirectionSet best(const std::vector<BF::Direction>& all, double elevation, double distance,
                  double width) {
  const auto misfit = [&](int i) {
    const BF::Direction& b = all[static_cast<std::size_t>(i)];
    return std::tuple(std::round(10.0 * std::abs(b.elevation - elevation)),
                      std::abs(b.distance - distance), i);
  };
  std::map<int, int> byAzimuth;
  for (int i = 0; i < static_cast<int>(all.size()); ++i) {
    const BF::Direction& b = all[static_cast<std::size_t>(i)];
    if (b.distance == 0.0 || std::abs(b.elevation - elevation) > width) continue;
    const auto [found, isNew] = byAzimuth.try_emplace(tenthOf(b.azimuth), i);
    if (!isNew && misfit(i) < misfit(found->second)) found->second = i;
  }
  return listed(all, byAzimuth);
}

}  // namespace

DirectionSet DirectionSet::ring(const BF::TransformFunctionDatabase& database, double elevation,
                                double distance) {
  const std::vector<BF::Direction> all = directionsOf(database);
  const double nearest =
      std::min_element(all.begin(), all.end(), [&](auto& a, auto& b) {
        return std::abs(a.elevation - elevation) < std::abs(b.elevation - elevation);
      })->elevation;
  DirectionSet ring;
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

DirectionSet DirectionSet::sphere(const BF::TransformFunctionDatabase& database, double distance) {
  const std::vector<BF::Direction> all = directionsOf(database);
  const auto misfit = [&](int i) {
    return std::abs(all[static_cast<std::size_t>(i)].distance - distance);
  };
  std::map<std::pair<int, int>, int> byDirection;  // elevation, azimuth
  for (int i = 0; i < static_cast<int>(all.size()); ++i) {
    const BF::Direction& b = all[static_cast<std::size_t>(i)];
    if (b.distance == 0.0) continue;
    const std::pair key(static_cast<int>(std::lround(10.0 * b.elevation)), tenthOf(b.azimuth));
    const auto [found, isNew] = byDirection.try_emplace(key, i);
    if (!isNew && misfit(i) < misfit(found->second)) found->second = i;
  }
  const double lowest = byDirection.empty() ? 0.0 : 0.1 * byDirection.begin()->first.first;
  const double highest = byDirection.empty() ? 0.0 : 0.1 * byDirection.rbegin()->first.first;
  if (highest - lowest < MIN_HEIGHT) {
    throw DataError(
        fmt::format("found directions at elevations from {:.1f} to {:.1f} degrees, expected {} or "
                    "more between them for --map",
                    lowest + 0.0, highest + 0.0, MIN_HEIGHT));
  }
  return listed(all, byDirection);
}

std::string DirectionSet::text() const {
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
