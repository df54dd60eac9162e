// Scene files: any text, read and asked for the sources at many times.
#include <cmath>

#include "dsp/AudioError.h"
#include "fuzz/Fuzzing.h"
#include "scene/Scene.h"

namespace {

void requireFinite(const std::vector<Audio::PlacedSource>& placed) {
  for (const Audio::PlacedSource& source : placed) {
    const Audio::Position& p = source.position;
    require(std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z), "positions are finite");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    const Audio::Scene scene = Audio::Scene::parse(text, "scene.json");
    for (const double t : {-1.0, 0.0, 0.1, 0.5, 1.0, 2.5, 100.0, 1e9}) {
      const auto targets = scene.targetsAt(t);
      const auto noise = scene.noiseAt(t, true);
      requireFinite(targets);
      requireFinite(noise);
      require(targets.size() + noise.size() >= scene.sources().size(),
              "a target is either active or noise");
    }
  } catch (const Audio::AudioError& error) {
    require(isShowable(error.what()), "messages are showable");
  }
  return 0;
}
