#pragma once

#include <string>

#include "cli/SeparationSettings.h"

/// A method and how it is run, as `evaluate` has it.
struct EvaluatedMethod {
  std::string name;             ///< the text that it was read from
  SeparationSettings settings;  ///< those that files and frames do not decide

  const Method& method() const { return *settings.method; }

  /// Whether it makes a difference with which database it runs.
  bool isInformed() const { return method().needsDatabase() || method().needsResponses(); }
};

/// Reads NAME, or NAME+PASSES for --refine PASSES, with options of `separate` behind it that say
/// how it separates: "GJ --param GJ_LC_MYU=0.01". Throws CLI::ValidationError, which names the
/// text.
EvaluatedMethod evaluatedMethod(const std::string& text);
