#include "cli/SeparatorSettings.h"

#include <fmt/format.h>

#include <cstdlib>
#include <map>
#include <utility>
#include <vector>

#include "audio/FrameReader.h"
#include "separation/NoiseFile.h"
#include "separation/SettingsWindows.h"

namespace {

/// The noise of --noise-recording, or of the recording at the times of --noise-from; else none.
std::vector<BF::Matrix> measuredNoise(const SeparationSettings& s, SeparationInputs& inputs) {
  if (!inputs.noise && s.noiseRanges.empty()) return {};
  std::vector<Audio::TimeRange> ranges;
  if (!inputs.noise) ranges = Audio::parseTimeRanges(s.noiseRanges);
  Audio::FrameReader reader(inputs.noise ? std::move(*inputs.noise) : openAgain(s),
                            {s.length, s.advance}, windowsOf(separatorSettings(s)).analysis);
  return noiseMatrices(noiseOfFile(reader, ranges), s.noiseLoading, s.noiseNormalize);
}

}  // namespace

Separation::Settings separatorSettings(const SeparationSettings& s) {
  Separation::Settings settings;
  setMethod(*s.method, s.methodParameters, settings);
  settings.samplingRate = s.samplingRate;
  settings.length = s.length;
  settings.advance = s.advance;
  settings.window = s.window;
  if (s.latency > 0) settings.latency = s.latency;
  settings.noise.forgetting = s.noiseForgetting;
  settings.noise.loading = s.noiseLoading;
  settings.noise.normalize = s.noiseNormalize;
  settings.project = s.project;
  settings.projectionForgetting = s.projectionForgetting;
  settings.referenceMicrophone = s.reference - 1;
  settings.undoHalfFrameShift = s.undoHalfFrameShift;
  settings.inactiveAsNoise = false;
  settings.keepNonFinite = s.nonFinite == "KEEP";
  settings.level = s.level;
  settings.passes = s.passes;
  settings.refinement.passes = s.refinePasses;
  settings.refinement.running = s.refineLive;
  settings.refinement.memory = s.refineMemory;
  settings.refinement.loading = static_cast<float>(settings.refinement.loading);  // as the node
  settings.postMask = s.postMask;
  settings.threads = s.threads;
  return settings;
}

Separation::Separator makeSeparator(const SeparationSettings& s, SeparationInputs& inputs) {
  Separation::Settings settings = separatorSettings(s);
  settings.noise.matrices = measuredNoise(s, inputs);
  if (s.method->needsResponses()) {
    const Separation::ImpulseResponses responses = std::move(inputs.responses);
    return {settings, responses};
  }
  if (!s.method->needsDatabase()) return {settings, inputs.microphones};
  const BF::TransformFunctionDatabase database = std::move(inputs.database);
  return {settings, database};
}

std::string refusalOf(const Separation::SettingError& error) {
  static const std::map<std::string, std::string> OPTIONS = {
      {"samplingRate", "--rate"},
      {"length", "--length"},
      {"advance", "--advance"},
      {"window", "--window"},
      {"noise.forgetting", "--noise-forgetting"},
      {"noise.loading", "--noise-loading"},
      {"projectionForgetting", "--project-forgetting"},
      {"passes", "--passes"},
      {"refinement.passes", "--refine"},
      {"refinement.memory", "--refine-memory"},
      {"postMask", "--post-mask"}};
  const auto option = OPTIONS.find(error.field);
  const std::string& name = option == OPTIONS.end() ? error.field : option->second;
  return fmt::format("{} is {}, expected {}", name, error.actual, error.expected);
}
