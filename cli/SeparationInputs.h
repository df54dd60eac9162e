#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/SeparationSettings.h"
#include "scene/Scene.h"

/// What the files of a separation say, found out before it starts.
struct SeparationInputs {
  Audio::Scene scene;
  std::optional<std::int64_t> samples;  ///< the recording's length, where it says so
  std::vector<std::string> notes;       ///< which response serves each source, a line each
  std::vector<std::string> warnings;    ///< what will work, but badly
};

/// Reads the files' heads, takes from them what the settings leave open (frame length and sampling
/// rate: the database's; without one 512 samples and the recording's rate), and checks that they
/// fit together. Throws DataError naming the file, what was found and expected.
SeparationInputs examineInputs(SeparationSettings& settings);
