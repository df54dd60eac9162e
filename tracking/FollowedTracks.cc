#include "tracking/FollowedTracks.h"

#include <utility>

#include "scene/Stretches.h"

namespace Tracking {

namespace {

constexpr double REST = 0.1;  // seconds from place to place of a source that moves

}  // namespace

void FollowedTracks::add(const Audio::TimeRange& range,
                         const std::vector<BF::SourceLocation>& listed) {
  if (range.end <= range.begin) return;
  for (const BF::SourceLocation& entry : listed) {
    const auto [found, isNew] = sources.try_emplace(entry.id);
    Noted& noted = found->second;
    if (isNew) {
      noted.source.id = entry.id;
      noted.isTarget = entry.flag;
    }
    if (noted.isTarget != entry.flag) continue;
    if (isNew || range.begin >= noted.since + REST) {
      noted.place.position = entry;
      noted.since = range.begin;
    }
    addStretch(noted.source, range, noted.place);
  }
}

Audio::Scene FollowedTracks::scene(const std::string& name) const {
  std::vector<Audio::SceneSource> targets;
  std::vector<Audio::SceneSource> noises;
  for (const auto& [id, noted] : sources) {
    (noted.isTarget ? targets : noises).push_back(noted.source);
  }
  return Audio::Scene::of(std::move(targets), std::move(noises), name);
}

}  // namespace Tracking
