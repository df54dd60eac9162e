#pragma once

#include <cstdint>
#include <vector>

#include "audio/SeparatedFiles.h"
#include "cli/SeparationInputs.h"
#include "cli/SeparationSettings.h"

/// How files of an earlier run are replaced, for messages.
constexpr const char* FORCE_WORDS = "--force replaces them";

/// What a separation wrote.
struct SeparationResult {
  std::vector<Audio::SeparatedSound> files;  ///< by source
  std::int64_t samples = 0;                  ///< of each of them
  int passes = 1;                            ///< over the recording
};

/// Separates the recording into the files or the stream. With showsProgress and standard error on a
/// terminal, a progress bar shows there; warnings go there, too. SIGINT, SIGTERM and SIGHUP end the
/// run after the frame at hand: its files are completed, then std::runtime_error says so (but see
/// SignalWatch). Throws DataError and SettingError, and leaves no file then. The inputs are used
/// up; with a tracker that is followed their scene is what it told.
SeparationResult runSeparation(const SeparationSettings& settings, SeparationInputs& inputs,
                               bool showsProgress);
