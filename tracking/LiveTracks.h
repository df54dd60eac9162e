#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "tracking/TrackInput.h"
#include "tracking/TrackStream.h"

namespace Tracking {

/// Follows a tracker while it works: a thread of its own reads the messages, of which the newest is
/// in force from when it arrives until the next one, a tracker's for settings.hold at most. Their
/// own times only tell late ones. With tcp:// a tracker may go and another one come.
class LiveTracks {
 public:
  using Clock = std::chrono::steady_clock;

  LiveTracks(std::unique_ptr<TrackInput> trackInput, const TrackSettings& trackSettings);
  LiveTracks(const LiveTracks&) = delete;
  LiveTracks& operator=(const LiveTracks&) = delete;
  /// Ends the thread.
  ~LiveTracks();

  /// Who is there; may be called from one thread besides that of the constructor. Takes a lock for
  /// a moment.
  struct Sources {
    std::vector<Audio::PlacedSource> targets;
    std::vector<Audio::PlacedSource> noise;
  };
  Sources at(Clock::time_point now) const;

  /// What became of the stream so far.
  TrackCounts counts() const;

  /// Why it could not be read any longer, "" while it can or after its end.
  std::string failure() const;

 private:
  void follow();
  void takeAll(TrackStream& stream);

  std::unique_ptr<TrackInput> input;
  TrackSettings settings;
  mutable std::mutex mutex;  // of the following
  TrackMessage newest;
  Clock::time_point arrival;
  TrackCounts seen;
  std::string fault;
  std::thread thread;  // last: it uses the others
};

}  // namespace Tracking
