#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "geometry/Location.h"

namespace Separation {

/// Who is listed when: lists of sources, each in force from a sample on.
class SourceTimeline {
 public:
  /// keepInactive: a target that is no longer listed stays as a noise source where it was last.
  explicit SourceTimeline(bool keepInactive) : inactiveAsNoise(keepInactive) {}

  /// Adds a list that is in force from a sample on; one for the same sample replaces the earlier
  /// one. Throws SettingError when the sample lies before that of an earlier list, a coordinate is
  /// not finite or an id stands twice; nothing changes then.
  void set(const std::vector<BF::SourceLocation>& sources, std::int64_t from);

  /// Moves on to the list that is in force at a time, given as twice its samples so that it may lie
  /// between two. Never goes back.
  void moveTo(std::int64_t halfSamples);

  /// The list in force: empty before the first one.
  const std::vector<BF::SourceLocation>& current() const { return listed; }

 private:
  struct Change {
    std::int64_t from;
    std::vector<BF::SourceLocation> sources;
  };
  void apply(Change& change);

  bool inactiveAsNoise;
  std::deque<Change> changes;  // still to come
  std::int64_t lastFrom = 0;
  std::vector<BF::SourceLocation> newest;   // as given last
  std::vector<BF::SourceLocation> listed;   // in force
  std::vector<BF::SourceLocation> targets;  // all there were, where they were last
};

/// Whether two lists hold the same sources at the same places in the same order.
bool sameSources(const std::vector<BF::SourceLocation>& a,
                 const std::vector<BF::SourceLocation>& b);

}  // namespace Separation
