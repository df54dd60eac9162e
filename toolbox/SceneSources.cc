#include "SceneSources.h"

#include <memory>
#include <utility>

#include "audio/SamplingRates.h"
#include "dsp/DataError.h"

namespace {

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

const NodeSpec SceneSources::SPEC = {
    .type = "SceneSources",
    .sourceFile = "SceneSources.cc",
    .text =
        "Says which sources a scene file has in each frame, and where they are. The time of a "
        "frame is that of its centre.",
    .inputs = {},
    .outputs = {{"SOURCES", SOURCES_TYPE, "Target sources that are active in the frame"},
                {"NOISE_SOURCES", SOURCES_TYPE,
                 "Noise sources that are active in the frame; with INACTIVE_AS_NOISE also the "
                 "targets that are not"}},
    .parameters = {
        {"FILENAME", "string", nullptr,
         "The scene file (JSON): which sources there are, where, and when each is active"},
        {"LENGTH", "int", nullptr, "Samples per frame, as in AudioFrames"},
        {"ADVANCE", "int", nullptr, "Samples from one frame to the next, as in AudioFrames"},
        {"SAMPLING_RATE", "int", nullptr, "Sampling rate in Hz, as in AudioFrames"},
        {"INACTIVE_AS_NOISE", "bool", "false",
         "true: list a target as a noise source while it is not active, which MSNR needs to learn "
         "each source's noise"}}};

namespace {

const int registered = declareNode<SceneSources>();

}  // namespace

SceneSources::SceneSources(std::string nodeName, const FD::ParameterSet& params)
    : ToolboxNode(SPEC, std::move(nodeName), params, __LINE__) {
  inactiveAsNoise = boolParameter("INACTIVE_AS_NOISE");
  checked([&] {
    layout = Audio::FrameLayout(intParameter("LENGTH"), intParameter("ADVANCE"));
    samplingRate = Audio::checkedSamplingRate(intParameter("SAMPLING_RATE"));
    scene = Audio::Scene::read(stringParameter("FILENAME"));
    scene.requireFewAtOnce(stringParameter("FILENAME"), inactiveAsNoise);
  });
}

void SceneSources::calculate(int output_id, int count, FD::Buffer& out) {
  const double t = layout.time(count, samplingRate);
  const bool isNoise = output_id == translateOutput("NOISE_SOURCES");
  out[count] = sourceList(isNoise ? scene.noiseAt(t, inactiveAsNoise) : scene.targetsAt(t));
}
