#include "scene/Scene.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace Audio {

namespace {

double between(double a, double b, double share) { return a + (b - a) * share; }

Position interpolated(const TrackPoint& a, const TrackPoint& b, double t) {
  const double share = (t - a.t) / (b.t - a.t);
  if (a.isDirection && b.isDirection) {
    const double turn = std::remainder(b.direction.azimuth - a.direction.azimuth, 360.0);
    return Direction{a.direction.azimuth + share * turn,
                     between(a.direction.elevation, b.direction.elevation, share),
                     between(a.direction.distance, b.direction.distance, share)}
        .position();
  }
  return {between(a.position.x, b.position.x, share), between(a.position.y, b.position.y, share),
          between(a.position.z, b.position.z, share)};
}

void appendPlaced(const std::vector<SceneSource>& sources, double t, bool wanted,
                  std::vector<PlacedSource>& placed) {
  for (const SceneSource& source : sources) {
    if (source.isActive(t) == wanted) placed.push_back({source.id, source.positionAt(t)});
  }
}

}  // namespace

Position Direction::position() const {
  const double a = azimuth * std::numbers::pi / 180.0;
  const double e = elevation * std::numbers::pi / 180.0;
  return {distance * std::cos(e) * std::cos(a), distance * std::cos(e) * std::sin(a),
          distance * std::sin(e)};
}

bool SceneSource::isActive(double t) const {
  return always || std::any_of(active.begin(), active.end(), [t](const TimeRange& range) {
           return range.begin <= t && t < range.end;
         });
}

Position SceneSource::positionAt(double t) const {
  const auto later = std::find_if(track.begin(), track.end(),
                                  [t](const TrackPoint& point) { return point.t > t; });
  if (later == track.begin()) return track.front().position;
  if (later == track.end()) return track.back().position;
  return interpolated(*(later - 1), *later, t);
}

std::vector<PlacedSource> Scene::targetsAt(double t) const {
  std::vector<PlacedSource> placed;
  appendPlaced(targets, t, true, placed);
  return placed;
}

std::vector<PlacedSource> Scene::noiseAt(double t, bool inactiveAsNoise) const {
  std::vector<PlacedSource> placed;
  appendPlaced(noises, t, true, placed);
  if (inactiveAsNoise) appendPlaced(targets, t, false, placed);
  return placed;
}

}  // namespace Audio
