#include "cli/SeparatorSettings.h"

#include <fmt/format.h>

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
  settings.level = false;  // as the nodes
  settings.keepNonFinite = s.nonFinite == "KEEP";
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
      {"projectionForgetting", "--project-forgetting"}};
  const auto option = OPTIONS.find(error.field);
  const std::string& name = option == OPTIONS.end() ? error.field : option->second;
  return fmt::format("{} is {}, expected {}", name, error.actual, error.expected);
}
