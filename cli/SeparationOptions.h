#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "cli/SeparationSettings.h"

/// Options that contradict each other or a method; the main reports them as misuse.
[[noreturn]] void misuse(const std::string& text);

/// The options that say how sound is separated, be it a recording's or live.
class SeparationOptions {
 public:
  SeparationSettings settings;

  /// Adds the options that say what to separate by: database, scene, method.
  void addModel(CLI::App& command);

  /// Adds those of the method alone.
  void addMethod(CLI::App& command);

  /// Adds those of the frames.
  void addFrames(CLI::App& command);

  /// Adds those of the noise's statistics: from when in the recording, from another recording, and
  /// how they are taken.
  void addNoiseTimes(CLI::App& command);
  void addNoiseRecording(CLI::App& command);
  void addNoise(CLI::App& command);

  /// Adds those of what becomes of the outputs.
  void addOutputs(CLI::App& command);

  /// Adds the passes over a recording; to be called after addOutputs.
  void addPasses(CLI::App& command);

  /// Completes the settings after parsing. Throws CLI::ValidationError for options of the command
  /// that contradict each other or the method.
  void apply(const CLI::App& command);

  /// The same where scene, database and responses come from elsewhere.
  void applyMethod(const CLI::App& command);

 private:
  std::string method = "NULL";
  std::vector<std::string> parameters;  // NAME=VALUE
  std::string projection = "auto";
  std::string halfFrameShift = "auto";
  std::string inactiveAsNoise = "auto";
  std::string level = "on";
};
