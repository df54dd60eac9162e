#include "scene/Stretches.h"

#include <cmath>

namespace Audio {

namespace {

bool isSamePlace(const BF::Location& a, const BF::Location& b) {
  return a.x == b.x && a.y == b.y && a.z == b.z;
}

}  // namespace

void addStretch(SceneSource& source, const TimeRange& range, TrackPoint place) {
  source.always = false;
  if (source.track.empty() || !isSamePlace(source.track.back().position, place.position)) {
    if (!source.track.empty()) {
      // Where it was, up to the last moment before the stretch: no way leads from there to here.
      TrackPoint before = source.track.back();
      const double moment = std::nextafter(range.begin, before.t);
      if (moment > before.t) {
        before.t = moment;
        source.track.push_back(before);
      }
    }
    place.t = range.begin;
    source.track.push_back(place);
  }
  if (!source.active.empty() && range.begin <= source.active.back().end) {
    source.active.back().end = range.end;
  } else {
    source.active.push_back(range);
  }
}

}  // namespace Audio
