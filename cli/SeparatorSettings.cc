#include "cli/SeparatorSettings.h"

#include <fmt/format.h>

#include <cstdlib>
#include <map>

Separation::Settings separatorSettings(const SeparationSettings& s) {
  Separation::Settings settings;
  settings.method = s.method->algorithm;
  settings.parameters = engineParameters(*s.method, s.methodParameters);
  settings.samplingRate = s.samplingRate;
  settings.length = s.length;
  settings.advance = s.advance;
  settings.window = s.window;
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
  if (s.method->needsResponses()) {
    const auto chosen = s.methodParameters.find("LOADING");
    const std::string& loading =
        chosen == s.methodParameters.end() ? s.method->parameters[0].defaultValue : chosen->second;
    settings.mvdrLoading = std::strtof(loading.c_str(), nullptr);
  }
  return settings;
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
