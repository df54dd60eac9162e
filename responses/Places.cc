#include "responses/Places.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

double angleBetween(const Audio::Position& a, const Audio::Position& b) {
  const double product = std::hypot(a.x, a.y, a.z) * std::hypot(b.x, b.y, b.z);
  if (product == 0.0) return 0.0;
  const double cosine = (a.x * b.x + a.y * b.y + a.z * b.z) / product;
  return std::acos(std::clamp(cosine, -1.0, 1.0)) * 180.0 / std::numbers::pi;
}

std::vector<BF::SourceLocation> sourcesAsSeparated(
    const std::vector<SofaFile::Position>& positions) {
  std::vector<BF::SourceLocation> sources;
  int id = 0;
  for (const SofaFile::Position& p : positions) {
    sources.push_back(asSeparated({p[0], p[1], p[2]}, id++, true));
  }
  return sources;
}

MeasuredPlaces::MeasuredPlaces(std::vector<SofaFile::Position> positions)
    : grid{sourcesAsSeparated(positions), {}, {}}, places(std::move(positions)) {}

std::size_t MeasuredPlaces::nearest(const Audio::Position& point) const {
  return static_cast<std::size_t>(grid.findNearestSourceIndex(asSeparated(point, 0, true)));
}

Audio::Position MeasuredPlaces::place(std::size_t number) const {
  const SofaFile::Position& p = places.at(number);
  return {p[0], p[1], p[2]};
}
