#pragma once

#include "scene/Scene.h"
#include "tracking/TrackInput.h"
#include "tracking/TrackStream.h"

namespace Tracking {

/// The scene of all messages up to the input's end, by their own times. Each source is where the
/// newest message says until the next one; a tracker's message is in force for settings.hold at
/// most. An id that came as a target does not become noise, nor the other way round: the source is
/// left out of such messages. Throws DataError naming the input, also when it holds no message, or
/// its sources move more than MAX_MOVES times.
Audio::Scene recordedTracks(TrackInput& input, const TrackSettings& settings, TrackCounts& counts);

constexpr std::size_t MAX_MOVES = std::size_t{1} << 21;

}  // namespace Tracking
