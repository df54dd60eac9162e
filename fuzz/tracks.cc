// Streams of a tracker's messages: any bytes, in pieces of any size.
#include <algorithm>
#include <cmath>
#include <vector>

#include "dsp/DataError.h"
#include "fuzz/Fuzzing.h"
#include "tracking/RecordedTracks.h"

namespace {

using Tracking::TrackMessage;
using Tracking::TrackStream;

void check(const TrackMessage& message) {
  for (const auto* list : {&message.targets, &message.noise}) {
    require(list->size() <= Audio::Scene::MAX_AT_ONCE, "no more sources at once than the limit");
    for (const Audio::PlacedSource& source : *list) {
      require(std::hypot(source.position.x, source.position.y, source.position.z) < 2e6,
              "positions are within reach");
    }
  }
}

/// The times of the messages, −1 without one. Checks that they are in order.
std::vector<double> timesOf(const char* bytes, std::size_t size, std::size_t piece) {
  TrackStream stream({}, false, false);
  std::vector<double> times;
  double newest = 0.0;
  for (std::size_t at = 0; at < size; at += piece) {
    stream.add(bytes + at, std::min(piece, size - at));
    while (const auto message = stream.next()) {
      check(*message);
      times.push_back(message->time.value_or(-1.0));
      require(times.back() < 0.0 || times.back() >= newest, "messages are in order");
      newest = std::max(newest, times.back());
    }
  }
  require(times.size() == stream.counts().messages, "messages are counted");
  const std::string text = stream.counts().text();
  require(text.empty() || isShowable(text), "messages are showable");
  return times;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const auto* bytes = reinterpret_cast<const char*>(data + 1);
  const std::size_t piece = data[0] + std::size_t{1};
  require(timesOf(bytes, size - 1, piece) == timesOf(bytes, size - 1, size), "cuts do not matter");
  static const ScratchFile file;
  file.fill(bytes, size - 1);
  try {
    Tracking::TrackInput input(file.path(), [](const std::string&) {});
    Tracking::TrackCounts counts;
    const Audio::Scene scene = Tracking::recordedTracks(input, {}, counts);
    for (const double t : {0.0, 0.1, 1.0, 9.7, 1e6}) {
      require(scene.targetsAt(t).size() <= Audio::Scene::MAX_AT_ONCE, "no more than the limit");
    }
  } catch (const DataError& error) {
    require(isShowable(error.what()), "messages are showable");
  }
  return 0;
}
