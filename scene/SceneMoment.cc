#include "scene/SceneMoment.h"

#include <algorithm>

#include "responses/Places.h"

namespace {

void append(const std::vector<Audio::PlacedSource>& placed, bool isTarget,
            std::vector<BF::SourceLocation>& sources) {
  for (const Audio::PlacedSource& source : placed) {
    sources.push_back(asSeparated(source.position, source.id, isTarget));
  }
}

}  // namespace

double fullestTime(const Audio::Scene& scene) {
  const std::vector<Audio::SceneCrowd> crowds = scene.crowds();
  return std::max_element(crowds.begin(), crowds.end(),
                          [](const auto& a, const auto& b) { return a.active < b.active; })
      ->time;
}

std::vector<BF::SourceLocation> sourcesAt(const Audio::Scene& scene, double time) {
  std::vector<BF::SourceLocation> sources;
  append(scene.targetsAt(time), true, sources);
  append(scene.noiseAt(time, false), false, sources);
  return sources;
}
