#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/SeparationSettings.h"
#include "fileio/SofaFile.h"
#include "scene/Scene.h"

/// What a separation is about to work on, as far as it is known.
struct SeparationPlan {
  const SeparationSettings& settings;
  const Audio::Scene& scene;
  int microphones = 0;
  std::optional<double> duration;      ///< of the recording, in seconds
  const SofaFile* database = nullptr;  ///< null for methods without one
};

/// What a separation will do, but badly, before it starts: a line each with the numbers and the
/// remedy. Moving sources are looked at 1,000 times. Throws DataError when the responses cannot be
/// read.
std::vector<std::string> separationWarnings(const SeparationPlan& plan);

/// Which response serves each source that stands still, a line each.
std::vector<std::string> nearestResponses(const SeparationPlan& plan);
