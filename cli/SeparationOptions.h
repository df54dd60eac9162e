#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>
#include <vector>

#include "cli/SeparationSettings.h"
#include "separation/Methods.h"

/// Options that contradict each other or a method; the main reports them as misuse.
[[noreturn]] void misuse(const std::string& text);

/// Adds a parameter of a method, NAME=VALUE, to those given. Whatever does not fit the method is
/// misuse of the option of that name.
void addMethodParameter(const std::string& option, const std::string& assignment,
                        const Method& method, std::map<std::string, std::string>& given);

/// The options that say how sound is separated, be it a recording's or live.
class SeparationOptions {
 public:
  SeparationSettings settings;

  /// Adds the options that say what to separate by: database, scene, method.
  void addModel(CLI::App& command);

  /// Adds those of the frames.
  void addFrames(CLI::App& command);

  /// Adds those of the noise's statistics.
  void addNoise(CLI::App& command);

  /// Adds those of what becomes of the outputs.
  void addOutputs(CLI::App& command);

  /// Completes the settings after parsing. Throws CLI::ValidationError for options of the command
  /// that contradict each other or the method.
  void apply(const CLI::App& command);

 private:
  std::string method = "NULL";
  std::vector<std::string> parameters;  // NAME=VALUE
  std::string projection = "auto";
  std::string halfFrameShift = "auto";
  std::string inactiveAsNoise = "auto";
  std::string level = "on";
};
