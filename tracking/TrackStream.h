#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "tracking/JsonObjects.h"
#include "tracking/TrackMessage.h"

namespace Tracking {

/// What became of a stream of messages.
struct TrackCounts {
  std::size_t messages = 0;        ///< that were taken
  std::size_t broken = 0;          ///< pieces that are no messages
  std::size_t late = 0;            ///< messages of an earlier time than one before them
  std::size_t contradictions = 0;  ///< sources with an id that the same message gave before
  std::string fault;               ///< what the first broken piece is, "" without any

  /// What was left out, on one line, "" without anything.
  std::string text() const;
};

/// The messages of a stream of bytes, in the order of their times.
///
/// Pieces that are no messages are left out and counted. So are messages of an earlier time than
/// the newest one; a message of the same time replaces it. One that is earlier by more than RESTART
/// begins anew if `restarts` is true: the tracker was started again, and its counts with it.
class TrackStream {
 public:
  static constexpr double RESTART = 1.0;  ///< seconds

  /// needsTime: messages without a time are none.
  TrackStream(const TrackSettings& trackSettings, bool needsTime, bool restarts)
      : settings(trackSettings), timeIsNeeded(needsTime), mayRestart(restarts) {}

  void add(const char* bytes, std::size_t count) { objects.add(bytes, count); }

  /// The next message; none until more bytes come.
  std::optional<TrackMessage> next();

  const TrackCounts& counts() const { return seen; }

 private:
  std::optional<TrackMessage> messageOf(const std::string& text);
  bool isInOrder(const TrackMessage& message);

  TrackSettings settings;
  bool timeIsNeeded;
  bool mayRestart;
  JsonObjects objects;
  TrackCounts seen;
  std::size_t strange = 0;  // objects that are JSON, but no messages
  std::optional<double> newest;
};

}  // namespace Tracking
