#include "scene/Scene.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <utility>

#include "dsp/DataError.h"

namespace Audio {

namespace {

double between(double a, double b, double share) { return a + (b - a) * share; }

BF::Location interpolated(const TrackPoint& a, const TrackPoint& b, double t) {
  const double share = (t - a.t) / (b.t - a.t);
  if (a.isDirection && b.isDirection) {
    const double turn = std::remainder(b.direction.azimuth - a.direction.azimuth, 360.0);
    return BF::locationOf({a.direction.azimuth + share * turn,
                           between(a.direction.elevation, b.direction.elevation, share),
                           between(a.direction.distance, b.direction.distance, share)});
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

bool SceneSource::isActive(double t) const {
  if (always) return true;
  const auto later =
      std::upper_bound(active.begin(), active.end(), t,
                       [](double time, const TimeRange& range) { return time < range.begin; });
  return later != active.begin() && t < (later - 1)->end;
}

BF::Location SceneSource::positionAt(double t) const {
  const auto later =
      std::upper_bound(track.begin(), track.end(), t,
                       [](double time, const TrackPoint& point) { return time < point.t; });
  if (later == track.begin()) return track.front().position;
  if (later == track.end()) return track.back().position;
  return interpolated(*(later - 1), *later, t);
}

std::vector<TimeRange> merged(std::vector<TimeRange> ranges) {
  std::sort(ranges.begin(), ranges.end(),
            [](const TimeRange& a, const TimeRange& b) { return a.begin < b.begin; });
  std::vector<TimeRange> result;
  for (const TimeRange& range : ranges) {
    if (!result.empty() && range.begin <= result.back().end) {
      result.back().end = std::max(result.back().end, range.end);
    } else {
      result.push_back(range);
    }
  }
  return result;
}

Scene Scene::of(std::vector<SceneSource> targets, std::vector<SceneSource> noises,
                const std::string& name) {
  Scene scene;
  scene.targets = std::move(targets);
  scene.noises = std::move(noises);
  scene.requireFewAtOnce(name, false);
  return scene;
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

std::vector<SceneCrowd> Scene::crowds() const {
  std::map<double, std::ptrdiff_t> changes = {{0.0, 0}};
  for (const auto* list : {&targets, &noises}) {
    for (const SceneSource& source : *list) {
      if (source.always) ++changes[0.0];
      for (const TimeRange& range : source.active) {
        if (range.end <= 0.0) continue;
        ++changes[std::max(0.0, range.begin)];
        --changes[range.end];
      }
    }
  }
  std::vector<SceneCrowd> result;
  std::ptrdiff_t active = 0;
  for (const auto& [time, change] : changes) {
    active += change;
    if (change != 0 || result.empty()) result.push_back({time, static_cast<std::size_t>(active)});
  }
  return result;
}

void Scene::requireFewAtOnce(const std::string& name, bool inactiveAsNoise) const {
  const std::vector<SceneCrowd> all = crowds();
  const SceneCrowd fullest = *std::max_element(
      all.begin(), all.end(),
      [](const SceneCrowd& a, const SceneCrowd& b) { return a.active < b.active; });
  if (fullest.active > MAX_AT_ONCE) {
    throw DataError(fmt::format("{}: {} sources are active at {:g} s, expected {} at most", name,
                                fullest.active, fullest.time, MAX_AT_ONCE));
  }
  if (inactiveAsNoise && targets.size() > MAX_AT_ONCE) {
    throw DataError(
        fmt::format("{}: has {} sources, all of which count as noise while they are silent, "
                    "expected {} at most",
                    name, targets.size(), MAX_AT_ONCE));
  }
}

}  // namespace Audio
