#include "tracking/LiveTracks.h"

#include <exception>
#include <optional>
#include <utility>
#include <vector>

namespace Tracking {

LiveTracks::LiveTracks(std::unique_ptr<TrackInput> trackInput, const TrackSettings& trackSettings)
    : input(std::move(trackInput)), settings(trackSettings) {
  thread = std::thread([this] { follow(); });
}

LiveTracks::~LiveTracks() {
  input->stop();
  thread.join();
}

void LiveTracks::follow() {
  try {
    TrackStream stream(settings, false, true);
    std::vector<char> bytes(std::size_t{1} << 16);
    while (const std::size_t count = input->read(bytes.data(), bytes.size(), true)) {
      stream.add(bytes.data(), count);
      takeAll(stream);
    }
  } catch (const std::exception& error) {
    const std::lock_guard lock(mutex);
    fault = error.what();
  }
}

void LiveTracks::takeAll(TrackStream& stream) {
  std::optional<TrackMessage> last;
  while (std::optional<TrackMessage> message = stream.next()) last = std::move(message);
  const std::lock_guard lock(mutex);
  seen = stream.counts();
  if (!last) return;
  newest = std::move(*last);
  arrival = Clock::now();
}

LiveTracks::Sources LiveTracks::at(Clock::time_point now) const {
  const std::lock_guard lock(mutex);
  const std::chrono::duration<double> age = now - arrival;
  if (!newest.lasts && age.count() > settings.hold) return {};
  return {newest.targets, newest.noise};
}

TrackCounts LiveTracks::counts() const {
  const std::lock_guard lock(mutex);
  return seen;
}

std::string LiveTracks::failure() const {
  const std::lock_guard lock(mutex);
  return fault;
}

}  // namespace Tracking
