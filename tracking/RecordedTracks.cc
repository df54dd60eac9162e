#include "tracking/RecordedTracks.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "dsp/DataError.h"
#include "scene/Stretches.h"

namespace Tracking {

namespace {

using Audio::PlacedSource;
using Audio::SceneSource;

constexpr double LATEST = 1e9;  // seconds, as in scene files

/// Gathers the sources' tracks from messages in the order of time.
class Gathering {
 public:
  Gathering(const TrackInput& trackInput, double hold) : input(trackInput), holdTime(hold) {}

  void take(TrackMessage message) {
    if (newest) endNewest(*message.time);
    newest = std::move(message);
  }

  Audio::Scene finish() {
    if (!newest) throw DataError(input.name() + ": found no message of a tracker, expected some");
    endNewest(LATEST);
    return Audio::Scene::of(std::move(targets.sources), std::move(noises.sources), input.name());
  }

  std::size_t contradictions = 0;  // sources left out

 private:
  struct Sources {
    std::vector<SceneSource> sources;
    std::map<int, std::size_t> places;  // in sources, by id
  };

  void endNewest(double next) {
    const double begin = *newest->time;
    const double end = newest->lasts ? next : std::min(next, begin + holdTime);
    if (end <= begin) return;  // replaced
    add(newest->targets, targets, noises, {begin, end});
    add(newest->noise, noises, targets, {begin, end});
  }

  void add(const std::vector<PlacedSource>& placed, Sources& list, const Sources& others,
           const Audio::TimeRange& range) {
    for (const PlacedSource& entry : placed) {
      if (others.places.contains(entry.id)) {
        ++contradictions;
        continue;
      }
      const auto [place, isNew] = list.places.emplace(entry.id, list.sources.size());
      if (isNew) list.sources.emplace_back().id = entry.id;
      SceneSource& source = list.sources[place->second];
      const std::size_t before = source.track.size() + source.active.size();
      Audio::TrackPoint point;
      point.position = entry.position;
      addStretch(source, range, point);
      moves += source.track.size() + source.active.size() - before;
      if (moves > 2 * MAX_MOVES) {
        throw DataError(fmt::format(
            "{}: its sources move or come more than {} times, expected a shorter recording",
            input.name(), MAX_MOVES));
      }
    }
  }

  const TrackInput& input;
  double holdTime;
  std::optional<TrackMessage> newest;
  Sources targets;
  Sources noises;
  std::size_t moves = 0;
};

}  // namespace

Audio::Scene recordedTracks(TrackInput& input, const TrackSettings& settings, TrackCounts& counts) {
  TrackStream stream(settings, true, false);
  Gathering gathering(input, settings.hold);
  std::vector<char> bytes(std::size_t{1} << 16);
  while (const std::size_t count = input.read(bytes.data(), bytes.size(), false)) {
    stream.add(bytes.data(), count);
    while (std::optional<TrackMessage> message = stream.next()) gathering.take(std::move(*message));
  }
  counts = stream.counts();
  if (counts.messages == 0 && counts.broken > 0) {
    throw DataError(
        fmt::format("{}: found no message of a tracker: {}", input.name(), counts.fault));
  }
  Audio::Scene scene = gathering.finish();
  counts.contradictions += gathering.contradictions;
  return scene;
}

}  // namespace Tracking
