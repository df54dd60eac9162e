#include "cli/SeparationNetwork.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <utility>
#include <vector>

#include "audio/AudioReader.h"

namespace {

using Parameters = std::vector<FD::ParameterDescription>;

FD::ParameterDescription text(const std::string& name, const std::string& value) {
  return {name, "string", value};
}
FD::ParameterDescription whole(const std::string& name, int value) {
  return {name, "int", std::to_string(value)};
}
FD::ParameterDescription number(const std::string& name, float value) {
  return {name, "float", fmt::format("{}", value)};
}
FD::ParameterDescription truth(const std::string& name, bool value) {
  return {name, "bool", value ? "true" : "false"};
}

/// The layout of the frames, which the audio nodes but the projection want alike.
Parameters withLayout(const SeparationSettings& s, Parameters parameters) {
  parameters.push_back(whole("LENGTH", s.length));
  parameters.push_back(whole("ADVANCE", s.advance));
  parameters.push_back(whole("SAMPLING_RATE", s.samplingRate));
  return parameters;
}

/// The node that reads the recording.
FD::NodeDescription input(const SeparationSettings& s) {
  const bool isStream = !s.raw.empty() || Audio::AudioReader::isStream(s.recording);
  Parameters parameters = withLayout(
      s, {text("FILENAME", s.recording), text("WINDOW", s.window), text("CHANNELS", s.channels),
          truth("RESAMPLE", s.resample), text("NON_FINITE", s.nonFinite)});
  if (isStream) parameters.push_back(text("RAW", s.raw));
  return {"frames", isStream ? "AudioStream" : "AudioFrames", parameters};
}

Parameters separatorParameters(const SeparationSettings& s) {
  Parameters result = {whole("LENGTH", s.length), whole("SAMPLING_RATE", s.samplingRate)};
  if (!s.method->needsResponses()) result.push_back(truth("ENABLE_DEBUG", s.debug));
  if (s.method->nodeType == "BeamForming") result.push_back(text("BF_METHOD", s.method->name));
  if (s.method->needsDatabase()) result.push_back(text("TF_CONJ_FILENAME", s.database));
  if (s.method->needsResponses()) {
    result.push_back(whole("ADVANCE", s.advance));
    result.push_back(text("FILENAME", s.responses));
    result.push_back(text("WINDOW", s.window));
    result.push_back(whole("REFERENCE", s.reference));
  }
  for (const MethodParameter& parameter : s.method->parameters) {
    const auto chosen = s.methodParameters.find(parameter.name);
    result.push_back(
        {parameter.name, parameter.type,
         chosen == s.methodParameters.end() ? parameter.defaultValue : chosen->second});
  }
  return result;
}

Parameters noiseParameters(const SeparationSettings& s) {
  Parameters result = withLayout(
      s, {text("WINDOW", s.window), number("LOADING", s.noiseLoading),
          number("FORGETTING", s.noiseForgetting), truth("NORMALIZE", s.noiseNormalize)});
  const bool fromFile = !s.noiseRecording.empty();
  const bool fromRanges = !s.noiseRanges.empty();
  result.push_back(text("MODE", fromFile ? "FILE" : fromRanges ? "RANGES" : "RUNNING"));
  if (fromFile || fromRanges) {
    result.push_back(text("FILENAME", fromFile ? s.noiseRecording : s.recording));
    result.push_back(text("RANGES", s.noiseRanges));
    result.push_back(
        text("CHANNELS", fromFile && !s.noiseChannels.empty() ? s.noiseChannels : s.channels));
    result.push_back(truth("RESAMPLE", s.resample));
  }
  return result;
}

Parameters writerParameters(const SeparationSettings& s) {
  return withLayout(s, {text("DIRECTORY", s.directory), text("WINDOW", s.window),
                        truth("HALF_FRAME_SHIFT", s.undoHalfFrameShift), text("FORMAT", s.format),
                        text("PREFIX", s.prefix), truth("OVERWRITE", s.overwrite)});
}

FD::NodeDescription sceneNode(const SeparationSettings& s) {
  if (!s.tracks.isGiven()) {
    return {"scene", "SceneSources",
            withLayout(s, {text("FILENAME", s.scene.file),
                           text("SOURCES", fmt::format("{}", fmt::join(s.scene.sources, " "))),
                           truth("INACTIVE_AS_NOISE", s.inactiveAsNoise)})};
  }
  const Tracking::TrackSettings& tracks = s.tracks.settings;
  return {
      "scene", "TrackSources",
      withLayout(s, {text("FILENAME", s.tracks.input), text("HOP", fmt::format("{}", tracks.hop)),
                     number("HOLD", static_cast<float>(tracks.hold)),
                     number("DISTANCE", static_cast<float>(tracks.distance)),
                     truth("LIVE", areLive(s.tracks, s.recording)),
                     truth("INACTIVE_AS_NOISE", s.inactiveAsNoise)})};
}

FD::NetworkDescription frameLoop(const SeparationSettings& s) {
  const std::string& type = s.method->nodeType;
  FD::NetworkDescription loop{"SEPARATION", "iterator"};
  loop.nodes = {input(s), sceneNode(s), {"separator", type, separatorParameters(s)}};
  loop.links = {{"scene", "SOURCES", "separator", "INPUT_SOURCES"},
                {"scene", "SOURCES", "writer", "SOURCES"},
                {"frames", "SAMPLES", "writer", "SAMPLES"},
                {"frames", "LAST_FRAME", "writer", "LAST_FRAME"}};
  if (type == "MSNR" && s.level) {
    loop.nodes.push_back({"level", "Level"});
    loop.links.push_back({"frames", "OUTPUT", "level", "INPUT"});
    loop.links.push_back({"level", "OUTPUT", "separator", "INPUT_FRAMES"});
  } else {
    loop.links.push_back({"frames", "OUTPUT", "separator", "INPUT_FRAMES"});
  }
  if (type == "ML") {
    loop.nodes.push_back({"noise", "NoiseCorrelation", noiseParameters(s)});
    loop.links.push_back({"noise", "OUTPUT", "separator", "INPUT_NOISE_CM"});
    if (s.noiseRanges.empty() && s.noiseRecording.empty()) {
      loop.links.push_back({"frames", "OUTPUT", "noise", "INPUT"});
      loop.links.push_back({"scene", "SOURCES", "noise", "SOURCES"});
    }
  } else {
    loop.links.push_back({"scene", "NOISE_SOURCES", "separator", "INPUT_NOISE_SOURCES"});
  }
  std::string last = "separator";
  if (s.project) {
    last = "projection";
    loop.nodes.push_back({last,
                          "BackProjection",
                          {whole("LENGTH", s.length), whole("REFERENCE", s.reference),
                           number("FORGETTING", s.projectionForgetting)}});
    loop.links.push_back({"separator", "OUTPUT", last, "INPUT"});
    loop.links.push_back({"frames", "OUTPUT", last, "INPUT_FRAMES"});
    loop.links.push_back({"scene", "SOURCES", last, "SOURCES"});
  }
  if (s.refineLive) {
    loop.nodes.push_back(
        {"refinement", "MaskRefinement",
         withLayout(s, {whole("REFERENCE", s.reference), number("MEMORY", s.refineMemory),
                        number("POST_MASK", s.postMask)})});
    loop.links.push_back({last, "OUTPUT", "refinement", "INPUT"});
    loop.links.push_back({"frames", "OUTPUT", "refinement", "INPUT_FRAMES"});
    if (type == "MSNR") loop.links.push_back({"scene", "SOURCES", "refinement", "SOURCES"});
    last = "refinement";
  }
  // Last, so that a node that cannot be built leaves no folder behind.
  loop.nodes.push_back({"writer", "SeparatedWriter", writerParameters(s)});
  loop.links.push_back({last, "OUTPUT", "writer", "INPUT"});
  // The last frame's spectra are no result that anybody wants printed: MAIN has the first alone.
  loop.outputs = {{"COMPLETE", "frames", "LAST_FRAME"}, {"SEPARATED", "writer", "OUTPUT"}};
  loop.condition = FD::TerminalDescription{"CONDITION", "frames", "NOT_EOF"};
  return loop;
}

}  // namespace

FD::NetworkDocument separationNetwork(const SeparationSettings& settings) {
  FD::NetworkDescription main{"MAIN"};
  main.nodes = {{"separation", "SEPARATION"}};
  main.outputs = {{"COMPLETE", "separation", "COMPLETE"}};
  return {"separation", {main, frameLoop(settings)}};
}
