#include "tracking/TrackStream.h"

#include <fmt/format.h>

#include "dsp/DataError.h"

namespace Tracking {

std::string TrackCounts::text() const {
  std::string list;
  const auto append = [&](std::size_t count, const std::string& what) {
    if (count == 0) return;
    list += (list.empty() ? "" : ", ") + fmt::format("{} {}", count, what);
  };
  append(broken, "pieces that are no messages (the first: " + fault + ")");
  append(late, "messages that came later than newer ones");
  append(contradictions, "sources with an id that their message gave before");
  return list.empty() ? "" : "left out " + list;
}

std::optional<TrackMessage> TrackStream::messageOf(const std::string& text) {
  try {
    TrackMessage message = parseTrackMessage(text, settings);
    if (message.time || !timeIsNeeded) return message;
    throw DataError("found no \"t\", expected the time of the line in seconds");
  } catch (const DataError& error) {
    if (seen.fault.empty()) seen.fault = error.what();
    if (std::string(error.what()).starts_with("is no valid JSON")) {
      objects.giveBack();
    } else if (!objects.isWithinGivenUp()) {
      ++strange;
    }
    return std::nullopt;
  }
}

bool TrackStream::isInOrder(const TrackMessage& message) {
  if (!message.time) return true;
  const bool restarts = mayRestart && newest && *message.time < *newest - RESTART;
  if (newest && *message.time < *newest && !restarts) return false;
  newest = message.time;
  return true;
}

std::optional<TrackMessage> TrackStream::next() {
  std::optional<TrackMessage> found;
  while (!found) {
    const std::optional<std::string> text = objects.next();
    if (!text) break;
    found = messageOf(*text);
    if (!found) continue;
    seen.contradictions += found->contradictions;
    if (isInOrder(*found)) {
      ++seen.messages;
    } else {
      ++seen.late;
      found.reset();
    }
  }
  seen.broken = objects.givenUp() + strange;
  if (seen.broken > 0 && seen.fault.empty()) seen.fault = "a piece without its end";
  return found;
}

}  // namespace Tracking
