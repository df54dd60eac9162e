#include "scene/SceneMoment.h"

#include <algorithm>

namespace {

/// Through memory: where two such conversions stand side by side, the vectoriser of g++ 12 leaves
/// out the way to single precision and back.
double inSinglePrecision(double x) {
  const volatile float narrowed = static_cast<float>(x);
  return narrowed;
}

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

std::vector<BF::SourceLocation> sourcesAt(const Audio::Scene& scene, double time,
                                          bool inactiveAsNoise) {
  return asSeparated(scene.targetsAt(time), scene.noiseAt(time, inactiveAsNoise));
}

std::vector<BF::SourceLocation> asSeparated(const std::vector<Audio::PlacedSource>& targets,
                                            const std::vector<Audio::PlacedSource>& noise) {
  std::vector<BF::SourceLocation> sources;
  append(targets, true, sources);
  append(noise, false, sources);
  return sources;
}

BF::SourceLocation asSeparated(const BF::Location& point, int id, bool isTarget) {
  return {inSinglePrecision(point.x), inSinglePrecision(point.y), inSinglePrecision(point.z), id,
          isTarget};
}
