#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "scene/Scene.h"

namespace Tracking {

/// What a tracker's messages leave open.
struct TrackSettings {
  double hop = 128.0 / 16000.0;  ///< seconds from one count of "timeStamp" to the next
  double hold = 0.5;             ///< seconds that a tracker's message stays in force
  double distance = 1.0;         ///< metres, of directions that come as unit vectors
};

/// A tracker's hop in seconds, from a number of them or SAMPLES/RATE, such as 128/16000. Throws
/// DataError.
double hopOf(const std::string& text);

/// Who is where from a time on.
struct TrackMessage {
  std::optional<double> time;  ///< seconds
  /// Until the next one, as lines of a scene do; else for the time that a tracker's is held.
  bool lasts = false;
  std::vector<Audio::PlacedSource> targets;
  std::vector<Audio::PlacedSource> noise;
  std::size_t contradictions = 0;  ///< sources left out whose id stood in the message before
};

/// Reads one of two forms.
///
///   {"timeStamp": COUNT, "src": [{"id": ID, "x": X, "y": Y, "z": Z, …}, …]}
///
/// is a tracker's: every source's direction as a vector of any length, from whose zero and from id
/// 0 nothing follows: the slot is empty. Other keys do not count.
///
///   {"t": SECONDS, "sources": [SOURCE, …], "noise": [SOURCE, …]}
///
/// is a line of a scene: SOURCE as in a scene file, but without "track" and "active"; "t" and
/// "noise" may be missing. Of two sources with one id the first counts. Throws DataError.
TrackMessage parseTrackMessage(const std::string& text, const TrackSettings& settings);

}  // namespace Tracking
