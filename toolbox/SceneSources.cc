#include "SceneSources.h"

#include <sstream>
#include <utility>

#include "SourceLists.h"
#include "audio/SamplingRates.h"
#include "dsp/DataError.h"

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
        {"FILENAME", "string", "",
         "The scene file (JSON, CSV or RTTM): which sources there are, where, and when each is "
         "active"},
        {"LENGTH", "int", nullptr, "Samples per frame, as in AudioFrames"},
        {"ADVANCE", "int", nullptr, "Samples from one frame to the next, as in AudioFrames"},
        {"SAMPLING_RATE", "int", nullptr, "Sampling rate in Hz, as in AudioFrames"},
        {"INACTIVE_AS_NOISE", "bool", "false",
         "true: list a target as a noise source while it is not active, which MSNR needs to learn "
         "each source's noise"},
        {"SOURCES", "string", "",
         "Instead of a file ID:AZIMUTH[:ELEVATION[:DISTANCE]] of each source, separated by blanks; "
         "beside an RTTM file NAME:AZIMUTH… of each speaker"}}};

namespace {

const int registered = declareNode<SceneSources>();

}  // namespace

SceneSources::SceneSources(std::string nodeName, const FD::ParameterSet& params)
    : ToolboxNode(SPEC, std::move(nodeName), params, __LINE__) {
  inactiveAsNoise = boolParameter("INACTIVE_AS_NOISE");
  checked([&] {
    layout = Audio::FrameLayout(intParameter("LENGTH"), intParameter("ADVANCE"));
    samplingRate = Audio::checkedSamplingRate(intParameter("SAMPLING_RATE"));
    Audio::SceneChoice choice;
    choice.file = stringParameter("FILENAME");
    choice.fileWords = "FILENAME";
    choice.sourceWords = "SOURCES";
    std::istringstream texts(stringParameter("SOURCES"));
    for (std::string text; texts >> text;) choice.sources.push_back(text);
    scene = Audio::readScene(choice);
    scene.requireFewAtOnce(choice.name(), inactiveAsNoise);
  });
}

void SceneSources::calculate(int output_id, int count, FD::Buffer& out) {
  const double t = layout.time(count, samplingRate);
  const bool isNoise = output_id == translateOutput("NOISE_SOURCES");
  out[count] = sourceList(isNoise ? scene.noiseAt(t, inactiveAsNoise) : scene.targetsAt(t));
}
