#include "responses/Places.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

/// Through memory: where two such conversions stand side by side, the vectoriser of g++ 12 leaves
/// out the way to single precision and back.
double inSinglePrecision(double x) {
  const volatile float narrowed = static_cast<float>(x);
  return narrowed;
}

}  // namespace

double angleBetween(const Audio::Position& a, const Audio::Position& b) {
  const double product = std::hypot(a.x, a.y, a.z) * std::hypot(b.x, b.y, b.z);
  if (product == 0.0) return 0.0;
  const double cosine = (a.x * b.x + a.y * b.y + a.z * b.z) / product;
  return std::acos(std::clamp(cosine, -1.0, 1.0)) * 180.0 / std::numbers::pi;
}

BF::SourceLocation asSeparated(const Audio::Position& point, int id, bool isTarget) {
  return {inSinglePrecision(point.x), inSinglePrecision(point.y), inSinglePrecision(point.z), id,
          isTarget};
}

std::vector<BF::SourceLocation> sourcesAsSeparated(const SofaFile& file) {
  std::vector<BF::SourceLocation> sources;
  int id = 0;
  for (const SofaFile::Position& p : file.sourcePositions()) {
    sources.push_back(asSeparated({p[0], p[1], p[2]}, id++, true));
  }
  return sources;
}

MeasuredPlaces::MeasuredPlaces(const SofaFile& file)
    : grid{sourcesAsSeparated(file), {}, {}}, places(file.sourcePositions()) {}

std::size_t MeasuredPlaces::nearest(const Audio::Position& point) const {
  return static_cast<std::size_t>(grid.findNearestSourceIndex(asSeparated(point, 0, true)));
}

Audio::Position MeasuredPlaces::place(std::size_t number) const {
  const SofaFile::Position& p = places.at(number);
  return {p[0], p[1], p[2]};
}
