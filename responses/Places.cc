#include "responses/Places.h"

#include <algorithm>
#include <cmath>
#include <numbers>

double angleBetween(const Audio::Position& a, const Audio::Position& b) {
  const double product = std::hypot(a.x, a.y, a.z) * std::hypot(b.x, b.y, b.z);
  if (product == 0.0) return 0.0;
  const double cosine = (a.x * b.x + a.y * b.y + a.z * b.z) / product;
  return std::acos(std::clamp(cosine, -1.0, 1.0)) * 180.0 / std::numbers::pi;
}

std::size_t nearestSource(const SofaFile& file, const Audio::Position& point) {
  const auto& all = file.sourcePositions();
  const auto distance = [&](const SofaFile::Position& p) {
    return std::hypot(p[0] - point.x, p[1] - point.y, p[2] - point.z);
  };
  const auto found = std::min_element(all.begin(), all.end(), [&](const auto& a, const auto& b) {
    return distance(a) < distance(b);
  });
  return static_cast<std::size_t>(found - all.begin());
}

Audio::Position placeOf(const SofaFile& file, std::size_t number) {
  const SofaFile::Position& p = file.sourcePositions()[number];
  return {p[0], p[1], p[2]};
}
