#pragma once

#include <map>
#include <vector>

#include "geometry/Location.h"
#include "scene/Scene.h"

namespace Tracking {

/// Writes down whom a tracker told while it was followed. A source that moves is noted where it is
/// ten times a second at most, so that an hour takes a few megabytes.
class FollowedTracks {
 public:
  /// Who was listed in a range of times, in seconds, targets (flag true) and noise; one range after
  /// the other. An id that came as a target does not become noise, nor the other way round.
  void add(const Audio::TimeRange& range, const std::vector<BF::SourceLocation>& listed);

  /// All of it. `name` stands for the tracker in messages.
  Audio::Scene scene(const std::string& name) const;

 private:
  struct Noted {
    Audio::SceneSource source;
    bool isTarget = true;
    double since = 0.0;  // when its place was noted
    Audio::TrackPoint place;
  };
  std::map<int, Noted> sources;
};

}  // namespace Tracking
