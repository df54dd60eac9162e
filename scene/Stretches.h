#pragma once

#include "scene/Scene.h"

namespace Audio {

/// Goes on with a source that stands still in stretches: it is active in the range, and at `place`
/// from its begin on until the next stretch that is elsewhere. To be called in the order of time,
/// for a source with neither a track nor ranges at first; ranges may touch, but not overlap.
void addStretch(SceneSource& source, const TimeRange& range, TrackPoint place);

}  // namespace Audio
