#include "scene/SceneMoment.h"

#include <algorithm>
#include <cstddef>

namespace {

void append(const std::vector<Audio::PlacedSource>& placed, bool isTarget,
            std::vector<BF::SourceLocation>& sources) {
  // Single precision, as positions reach the separation.
  for (const Audio::PlacedSource& source : placed) {
    const Audio::Position& p = source.position;
    sources.emplace_back(static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z),
                         source.id, isTarget);
  }
}

}  // namespace

double fullestTime(const Audio::Scene& scene) {
  std::vector<double> begins = {0.0};
  for (const auto* list : {&scene.sources(), &scene.noiseSources()}) {
    for (const Audio::SceneSource& source : *list) {
      for (const Audio::TimeRange& range : source.active) begins.push_back(range.begin);
    }
  }
  std::sort(begins.begin(), begins.end());
  return *std::max_element(begins.begin(), begins.end(), [&](double a, double b) {
    return sourcesAt(scene, a).size() < sourcesAt(scene, b).size();
  });
}

std::vector<BF::SourceLocation> sourcesAt(const Audio::Scene& scene, double time) {
  std::vector<BF::SourceLocation> sources;
  append(scene.targetsAt(time), true, sources);
  append(scene.noiseAt(time, false), false, sources);
  return sources;
}
