// Scene files: any text in each form, read and asked for the sources at many times.
#include <cmath>

#include "dsp/DataError.h"
#include "fuzz/Fuzzing.h"
#include "scene/SourceText.h"

namespace {

/// Also in single precision, as they reach the separation.
void requireFinite(const std::vector<Audio::PlacedSource>& placed) {
  for (const Audio::PlacedSource& source : placed) {
    const BF::Location& p = source.position;
    const float distance =
        std::hypot(static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z));
    require(distance < 2e6F, "positions are within reach");
  }
}

template <class Parser>
void tryOut(Parser parse) {
  try {
    const Audio::Scene scene = parse();
    for (const double t : {-1.0, 0.0, 0.1, 0.5, 1.0, 2.5, 100.0, 1e9}) {
      const auto targets = scene.targetsAt(t);
      const auto noise = scene.noiseAt(t, true);
      requireFinite(targets);
      requireFinite(noise);
      require(targets.size() + scene.noiseAt(t, false).size() <= Audio::Scene::MAX_AT_ONCE,
              "no more sources at once than the limit");
      require(targets.size() + noise.size() >= scene.sources().size(),
              "a target is either active or noise");
    }
    double before = -1.0;
    for (const Audio::SceneCrowd& crowd : scene.crowds()) {
      require(crowd.time > before, "crowds are in order");
      const std::size_t there =
          scene.targetsAt(crowd.time).size() + scene.noiseAt(crowd.time, false).size();
      require(there == crowd.active, "crowds count who is there");
      before = crowd.time;
    }
  } catch (const DataError& error) {
    require(isShowable(error.what()), "messages are showable");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  static const std::vector<Audio::Speaker> SPEAKERS = Audio::speakersOf({"a:0", "b:90:10:2"});
  tryOut([&] { return Audio::Scene::parse(text, "scene.json"); });
  tryOut([&] { return Audio::Scene::parseCsv(text, "scene.csv"); });
  tryOut([&] { return Audio::Scene::parseRttm(text, "scene.rttm", SPEAKERS); });
  return 0;
}
