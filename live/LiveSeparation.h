#pragma once

#include <atomic>
#include <boost/lockfree/spsc_queue.hpp>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "dsp/FrameLayout.h"
#include "geometry/Location.h"
#include "live/SampleExchange.h"
#include "live/SlotMap.h"
#include "separation/Separator.h"

namespace Live {

/// A change of the slots and when it is heard.
struct SlotEvent {
  double time = 0.0;  ///< of the microphones' sound, in seconds from its begin
  SlotChange change;
};

/// Separates what comes through an exchange, frame by frame, and plays each source at its slot.
/// What is separated is to the bit what Separator gives for the same samples in one piece.
///
/// When more than `patience` samples wait, the separation cannot keep up, and their time is over:
/// they are passed over, so that those that come next are heard in time.
class LiveSeparation {
 public:
  /// The sources, targets and noise, at a time in seconds from the begin.
  using SourcesAt = std::function<std::vector<BF::SourceLocation>(double time)>;

  LiveSeparation(Separation::Separator separator, SourcesAt sourcesAt, SampleExchange& exchange,
                 int slotCount, std::size_t patience);

  /// Separates until the exchange ends, in the calling thread. Throws what the separator and
  /// sourcesAt throw.
  void run();

  /// How many samples a slot lags behind the microphones if the separation always has at least the
  /// time of `margin` calls of the exchange, which take `period` samples each. `step` divides the
  /// number of samples before every call: with calls of one size it is the period. A call may end
  /// up to advance − gcd(step, advance) samples before the next frame is complete, and a frame
  /// finishes what lies outputLength − advance samples back:
  ///   outputLength + margin · period − gcd(step, advance)
  static std::size_t delay(const Separation::Settings& settings, int period, int margin, int step);

  // ---- for one other thread

  /// The next change of the slots that was not asked for yet.
  std::optional<SlotEvent> nextEvent();

  std::int64_t passedOver() const { return skipped; }       ///< samples, for want of time
  std::int64_t replacedValues() const { return replaced; }  ///< that were not finite, in the slots

 private:
  /// Samples that were passed over.
  struct Gap {
    std::int64_t before = 0;  // the first sample that the separator got after them, as it counts
    std::int64_t samples = 0;
  };

  void listSources();
  void catchUp();
  bool play(const Separation::Output& output);
  void mix(const Separation::Output& output);
  bool give(const std::vector<float>& samples, std::size_t begin, std::size_t end);
  bool giveSilence(std::int64_t count);

  Separation::Separator separator;
  SourcesAt sourcesAt;
  SampleExchange& exchange;
  std::size_t patience;
  Audio::FrameLayout layout;
  std::vector<float> block;  // interleaved samples of the microphones
  std::int64_t frame = -1;   // the newest one

  SlotMap slots;
  std::vector<int> ids;
  std::vector<float> mixed;  // interleaved samples of the slots
  std::deque<Gap> gaps;      // that are not played yet
  std::int64_t played = 0;   // samples of a slot
  boost::lockfree::spsc_queue<SlotEvent> events;
  std::atomic<std::int64_t> skipped = 0;
  std::atomic<std::int64_t> replaced = 0;
};

}  // namespace Live
