#include "SceneSources.h"

#include <memory>
#include <utility>

#include "audio/SamplingRates.h"
#include "dsp/AudioError.h"

namespace {

const int registered =
    FD::Node::addFactory("SceneSources", new FD::NodeFactory<SceneSources>("SceneSources")) +
    FD::Node::addXPM("SceneSources", nullptr);

const char* const SOURCE_FILE = "SceneSources.cc";

FD::ObjectRef sourceList(const std::vector<Audio::PlacedSource>& placed) {
  auto list = std::make_unique<SourceList>();
  for (const Audio::PlacedSource& entry : placed) {
    auto* source = new FD::Source;
    list->push_back(FD::ObjectRef(source));
    source->id = entry.id;
    source->x = static_cast<float>(entry.position.x);
    source->y = static_cast<float>(entry.position.y);
    source->z = static_cast<float>(entry.position.z);
  }
  return FD::ObjectRef(list.release());
}

}  // namespace

const NodeSpec SceneSources::SPEC = {"SceneSources",
                                     {},
                                     {"SOURCES", "NOISE_SOURCES"},
                                     {{"FILENAME", "string", nullptr},
                                      {"LENGTH", "int", nullptr},
                                      {"ADVANCE", "int", nullptr},
                                      {"SAMPLING_RATE", "int", nullptr},
                                      {"INACTIVE_AS_NOISE", "bool", "false"}}};

SceneSources::SceneSources(std::string nodeName, const FD::ParameterSet& params)
    : ToolboxNode(SPEC, std::move(nodeName), params) {
  inactiveAsNoise = boolParameter("INACTIVE_AS_NOISE");
  try {
    layout = Audio::FrameLayout(intParameter("LENGTH"), intParameter("ADVANCE"));
    samplingRate = Audio::checkedSamplingRate(intParameter("SAMPLING_RATE"));
    scene = Audio::Scene::read(stringParameter("FILENAME"));
    scene.requireFewAtOnce(stringParameter("FILENAME"), inactiveAsNoise);
  } catch (const Audio::AudioError& error) {
    throw new FrozenNodeException(this, error.what(), SOURCE_FILE, __LINE__);
  }
}

void SceneSources::calculate(int output_id, int count, FD::Buffer& out) {
  const double t = layout.time(count, samplingRate);
  const bool isNoise = output_id == translateOutput("NOISE_SOURCES");
  out[count] = sourceList(isNoise ? scene.noiseAt(t, inactiveAsNoise) : scene.targetsAt(t));
}
