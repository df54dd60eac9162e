#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "audio/AudioReader.h"
#include "cli/SeparationSettings.h"
#include "geometry/TransformFunctionDatabase.h"
#include "scene/Scene.h"
#include "tracking/LiveTracks.h"

/// The files of a separation, each opened once, and what they say before it starts.
struct SeparationInputs {
  Audio::Scene scene;
  Audio::AudioReader recording;
  std::optional<Audio::AudioReader> noise = {};     ///< of noise alone
  BF::TransformFunctionDatabase database = {};      ///< empty for methods without one
  std::optional<std::int64_t> samples = {};         ///< the recording's length, where it says so
  std::unique_ptr<Tracking::LiveTracks> live = {};  ///< a tracker, which then makes the scene
  std::vector<std::string> notes = {};     ///< which response serves each source, a line each
  std::vector<std::string> warnings = {};  ///< what will work, but badly
};

/// Reads scene and database, opens the recordings, takes from them what the settings leave open
/// (frame length and sampling rate: the database's; without one 512 samples and the recording's
/// rate), and checks that they fit together. What is odd about a recording is said on standard
/// error when it is met. Throws DataError naming the file, what was found and
/// expected.
SeparationInputs openInputs(SeparationSettings& settings);

/// The recording once more, for a look at its noise beforehand. Warns of nothing.
Audio::AudioReader openForNoise(const SeparationSettings& settings);
