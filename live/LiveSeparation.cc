#include "live/LiveSeparation.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace Live {

namespace {

constexpr std::size_t MAX_EVENTS = 1024;  // that nobody has asked for; more are forgotten

}  // namespace

LiveSeparation::LiveSeparation(Separation::Separator theSeparator, SourcesAt sources,
                               SampleExchange& sampleExchange, int slotCount,
                               std::size_t patienceSamples)
    : separator(std::move(theSeparator)),
      sourcesAt(std::move(sources)),
      exchange(sampleExchange),
      patience(patienceSamples),
      layout(separator.settings().outputLength(), separator.settings().advance),
      block(static_cast<std::size_t>(layout.advance() * separator.microphones())),
      slots(slotCount),
      events(MAX_EVENTS) {}

std::size_t LiveSeparation::delay(const Separation::Settings& settings, int period, int margin,
                                  int step) {
  return static_cast<std::size_t>(settings.outputLength() + margin * period -
                                  std::gcd(step, settings.advance));
}

void LiveSeparation::run() {
  const auto advance = static_cast<std::size_t>(layout.advance());
  while (exchange.take(block.data(), advance)) {
    listSources();
    if (!play(separator.push(block.data(), advance))) return;
    catchUp();
  }
}

/// Moves on to the next frame and says who is active in it.
void LiveSeparation::listSources() {
  ++frame;
  const int rate = separator.settings().samplingRate;
  const double time = layout.time(frame, rate) + static_cast<double>(skipped) / rate;
  separator.setSources(sourcesAt(time), separator.sourcesAt(frame));
}

/// Passes over whole blocks that wait, if there are too many.
void LiveSeparation::catchUp() {
  const std::size_t waiting = exchange.waiting();
  if (waiting <= patience) return;
  const std::size_t count = waiting - waiting % static_cast<std::size_t>(layout.advance());
  exchange.drop(count);
  gaps.push_back({separator.samples(), static_cast<std::int64_t>(count)});
  skipped += static_cast<std::int64_t>(count);
}

/// Gives what is separated to the slots, and silence where samples were passed over. False: the
/// exchange ended.
bool LiveSeparation::play(const Separation::Output& output) {
  mix(output);
  std::size_t done = 0;
  for (; !gaps.empty(); gaps.pop_front()) {
    const auto until = static_cast<std::size_t>(gaps.front().before - output.start);
    if (until > output.count) break;
    if (!give(mixed, done, until) || !giveSilence(gaps.front().samples)) return false;
    done = until;
  }
  return give(mixed, done, output.count);
}

/// The slots' samples, interleaved.
void LiveSeparation::mix(const Separation::Output& output) {
  ids.clear();
  for (const Separation::Signal& signal : output.signals) ids.push_back(signal.id);
  const double time = static_cast<double>(played) / separator.settings().samplingRate;
  for (const SlotChange& change : slots.update(ids)) events.push({time, change});

  const auto slotCount = static_cast<std::size_t>(slots.size());
  mixed.assign(output.count * slotCount, 0.0F);
  std::int64_t bad = 0;
  for (const auto& [id, samples] : output.signals) {
    const int slot = slots.slotOf(id);
    if (slot == SlotChange::NO_SLOT) continue;
    for (std::size_t n = 0; n < output.count; ++n) {
      const bool isFinite = std::isfinite(samples[n]);
      if (!isFinite) ++bad;
      mixed[n * slotCount + static_cast<std::size_t>(slot)] = isFinite ? samples[n] : 0.0F;
    }
  }
  if (bad > 0) replaced += bad;
}

/// Some samples of a block of the slots' samples.
bool LiveSeparation::give(const std::vector<float>& samples, std::size_t begin, std::size_t end) {
  played += static_cast<std::int64_t>(end - begin);
  return exchange.give(samples.data() + begin * static_cast<std::size_t>(slots.size()),
                       end - begin);
}

bool LiveSeparation::giveSilence(std::int64_t count) {
  const std::vector<float> silence(static_cast<std::size_t>(layout.advance() * slots.size()), 0.0F);
  for (; count > 0; count -= layout.advance()) {
    const std::int64_t part = std::min<std::int64_t>(count, layout.advance());
    if (!give(silence, 0, static_cast<std::size_t>(part))) return false;
  }
  return true;
}

std::optional<SlotEvent> LiveSeparation::nextEvent() {
  SlotEvent event;
  if (!events.pop(event)) return std::nullopt;
  return event;
}

}  // namespace Live
