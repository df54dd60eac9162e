#include "live/SampleExchange.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace Live {

SampleExchange::SampleExchange(std::size_t microphones, std::size_t slots, std::size_t room,
                               std::size_t samplesDelay)
    : inputs(microphones),
      outputs(slots),
      recorded(room * microphones),
      separated((room + samplesDelay) * slots),
      chunk(CHUNK * std::max(microphones, slots)),
      delay(samplesDelay),
      silentFor(samplesDelay),
      heardLevels(microphones),
      playedLevels(slots) {
  if (sem_init(&moved, 0, 0) != 0) throw std::system_error(errno, std::generic_category());
}

SampleExchange::~SampleExchange() { sem_destroy(&moved); }

void SampleExchange::exchange(const float* const* microphones, float* const* slots,
                              std::size_t count) noexcept {
  record(microphones, count);
  leaveOutLate();
  const std::size_t silence = std::min(silentFor, count);
  const std::size_t end = play(slots, silence, count);
  silentFor -= silence;
  if (end < count) {
    missing += count - end;
    lateCalls.fetch_add(1, std::memory_order_relaxed);
    lateSamples.fetch_add(static_cast<std::int64_t>(count - end), std::memory_order_relaxed);
  }
  for (std::size_t slot = 0; slot < outputs; ++slot) {
    std::fill(slots[slot], slots[slot] + silence, 0.0F);
    std::fill(slots[slot] + end, slots[slot] + count, 0.0F);
    playedLevels.note(slot, slots[slot], count);
  }
  samples.fetch_add(static_cast<std::int64_t>(count), std::memory_order_relaxed);
  sem_post(&moved);
}

void SampleExchange::setDelay(std::size_t newDelay) noexcept {
  if (newDelay > delay) {
    silentFor += newDelay - delay;
  } else {
    // Silence that is still to come goes first.
    const std::size_t less = delay - newDelay;
    const std::size_t ofSilence = std::min(less, silentFor);
    silentFor -= ofSilence;
    missing += less - ofSilence;
  }
  delay = newDelay;
}

/// The microphones' samples into the ring; where they find no room, silence takes their place.
void SampleExchange::record(const float* const* microphones, std::size_t count) noexcept {
  for (std::size_t m = 0; m < inputs; ++m) heardLevels.note(m, microphones[m], count);
  // At most a few times as many as a call brings, so that no call takes long.
  if (!recordSilence(std::min(unrecorded, 4 * count)) || unrecorded > 0 ||
      recorded.write_available() < count * inputs) {
    unrecorded += count;
    lostSamples.fetch_add(static_cast<std::int64_t>(count), std::memory_order_relaxed);
    return;
  }
  for (std::size_t begin = 0; begin < count; begin += CHUNK) {
    const std::size_t part = std::min(CHUNK, count - begin);
    for (std::size_t m = 0; m < inputs; ++m) {
      for (std::size_t n = 0; n < part; ++n) chunk[n * inputs + m] = microphones[m][begin + n];
    }
    recorded.push(chunk.data(), part * inputs);
  }
}

/// Whether there was room for all of it.
bool SampleExchange::recordSilence(std::size_t count) noexcept {
  if (count == 0) return true;
  const std::size_t fitting = std::min(count, recorded.write_available() / inputs);
  std::fill(chunk.begin(), chunk.end(), 0.0F);
  for (std::size_t done = 0; done < fitting; done += CHUNK) {
    recorded.push(chunk.data(), std::min(CHUNK, fitting - done) * inputs);
  }
  unrecorded -= fitting;
  return fitting == count;
}

void SampleExchange::leaveOutLate() noexcept {
  std::size_t count = std::min(missing, playable());
  missing -= count;
  for (; count > 0; count -= std::min(CHUNK, count)) {
    separated.pop(chunk.data(), std::min(CHUNK, count) * outputs);
  }
}

/// Plays separated sound from `begin` on, unless some of it is still missing. Returns the end of
/// what there was.
std::size_t SampleExchange::play(float* const* slots, std::size_t begin, std::size_t end) noexcept {
  if (missing > 0) return begin;
  end = std::min(end, begin + playable());
  for (; begin < end; begin += std::min(CHUNK, end - begin)) {
    const std::size_t part = std::min(CHUNK, end - begin);
    separated.pop(chunk.data(), part * outputs);
    for (std::size_t slot = 0; slot < outputs; ++slot) {
      for (std::size_t n = 0; n < part; ++n) slots[slot][begin + n] = chunk[n * outputs + slot];
    }
  }
  return end;
}

bool SampleExchange::take(float* block, std::size_t count) {
  while (waiting() < count) {
    if (!wait()) return false;
  }
  recorded.pop(block, count * inputs);
  return !isOver;
}

void SampleExchange::drop(std::size_t count) {
  std::vector<float> unused(count * inputs);
  recorded.pop(unused.data(), unused.size());
}

bool SampleExchange::give(const float* block, std::size_t count) {
  while (separated.write_available() < count * outputs) {
    if (!wait()) return false;
  }
  separated.push(block, count * outputs);
  return !isOver;
}

/// Until the audio thread changed the rings. False: it is over.
bool SampleExchange::wait() {
  while (sem_wait(&moved) != 0 && errno == EINTR) {
  }
  return !isOver;
}

void SampleExchange::end() {
  isOver = true;
  sem_post(&moved);
}

ExchangeCounts SampleExchange::counts() const {
  return {samples.load(), lateCalls.load(), lateSamples.load(), lostSamples.load()};
}

}  // namespace Live
