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
#include "separation/mvdr/ImpulseResponses.h"
#include "tracking/LiveTracks.h"

/// The files of a separation, each opened once, and what they say before it starts.
struct SeparationInputs {
  Audio::Scene scene;
  std::unique_ptr<Tracking::LiveTracks> live = {};   ///< a tracker, instead of the scene
  std::optional<Audio::AudioReader> recording = {};  ///< none of live sound
  int microphones = 0;
  std::optional<Audio::AudioReader> noise = {};  ///< of noise alone
  BF::TransformFunctionDatabase database = {};   ///< empty for methods without one
  Separation::ImpulseResponses responses = {};   ///< for MVDR
  std::optional<std::int64_t> samples = {};      ///< the recording's length, where it says so
  std::vector<std::string> notes = {};           ///< which response serves each source, a line each
  std::vector<std::string> warnings = {};        ///< what will work, but badly
};

/// Reads scene and database, opens the recordings, takes from them what the settings leave open
/// (frame length and sampling rate: the database's; without one 512 samples and the recording's
/// rate), and checks that they fit together. What is odd about a recording is said on standard
/// error when it is met. Throws DataError naming the file, what was found and
/// expected.
SeparationInputs openInputs(SeparationSettings& settings);

/// Sound that comes from a sound server. Its name, for messages, is the settings' recording.
struct LiveSound {
  int samplingRate = 0;  ///< Hz
  int channels = 0;      ///< 0: as many as the database or the responses have microphones
};

/// The same for live sound; without a database frames have 512 samples. Throws DataError also for
/// channels that neither the sound nor a file tells the number of.
SeparationInputs openInputs(SeparationSettings& settings, const LiveSound& sound);

/// The recording once more, for a look at it beforehand. Warns of nothing.
Audio::AudioReader openAgain(const SeparationSettings& settings);

/// Who is listed in a frame: by the scene at its time in seconds, or by the tracker now.
std::vector<BF::SourceLocation> sourcesOf(const SeparationInputs& inputs, double time,
                                          bool inactiveAsNoise);
