#pragma once

#include <semaphore.h>

#include <atomic>
#include <boost/lockfree/spsc_queue.hpp>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "live/PeakLevels.h"

namespace Live {

/// What an exchange went through so far, in samples per channel and in calls of exchange().
struct ExchangeCounts {
  std::int64_t samples = 0;      ///< that came from the microphones
  std::int64_t lateCalls = 0;    ///< that found too little separated sound, and played silence
  std::int64_t lateSamples = 0;  ///< of such silence
  std::int64_t lostSamples = 0;  ///< that found no room and were separated as silence
};

/// The seam between an audio thread, which may neither wait nor allocate nor lock, and a thread
/// that separates: samples of all microphones go over through one lock-free ring, separated samples
/// of all slots come back through another.
///
/// What a slot plays at sample n of the audio thread is what was separated for sample n − delay, at
/// any time: sound that comes too late leaves silence where it belongs and is then left out, sound
/// that found no room counts as silence.
class SampleExchange {
 public:
  /// room: samples per microphone that may wait for the separation; delay: in samples.
  SampleExchange(std::size_t microphones, std::size_t slots, std::size_t room, std::size_t delay);
  SampleExchange(const SampleExchange&) = delete;
  SampleExchange& operator=(const SampleExchange&) = delete;
  ~SampleExchange();

  // ---- the audio thread

  /// Takes count samples of each microphone and gives as many of each slot.
  void exchange(const float* const* microphones, float* const* slots, std::size_t count) noexcept;

  /// Separated samples of every slot that have come.
  std::size_t playable() const { return separated.read_available() / outputs; }

  /// Plays silence or leaves out separated sound, so that the delay becomes another one. Not while
  /// exchange() runs.
  void setDelay(std::size_t samples) noexcept;

  // ---- the thread that separates

  /// Waits for count samples of every microphone, interleaved. False: end() was called.
  bool take(float* samples, std::size_t count);

  /// Samples of every microphone that can be taken without waiting.
  std::size_t waiting() const { return recorded.read_available() / inputs; }

  /// Passes over that many of those that wait.
  void drop(std::size_t count);

  /// What was separated next, interleaved, a channel per slot. Waits for room. False: end() was
  /// called.
  bool give(const float* samples, std::size_t count);

  // ---- any thread

  /// Lets take() and give() return false.
  void end();

  ExchangeCounts counts() const;
  PeakLevels& microphoneLevels() { return heardLevels; }
  PeakLevels& slotLevels() { return playedLevels; }

 private:
  using Ring = boost::lockfree::spsc_queue<float>;
  static constexpr std::size_t CHUNK = 64;  // samples that are interleaved at a time

  bool recordSilence(std::size_t count) noexcept;
  void record(const float* const* microphones, std::size_t count) noexcept;
  void leaveOutLate() noexcept;
  std::size_t play(float* const* slots, std::size_t begin, std::size_t end) noexcept;
  bool wait();

  const std::size_t inputs;
  const std::size_t outputs;
  Ring recorded;   // the audio thread writes it
  Ring separated;  // the audio thread reads it
  sem_t moved;     // posted when the audio thread changed the rings
  std::atomic<bool> isOver = false;

  // of the audio thread
  std::vector<float> chunk;
  std::size_t delay;
  std::size_t silentFor;       // samples that are still to be played before separated sound
  std::size_t missing = 0;     // separated samples whose time is over before they came
  std::size_t unrecorded = 0;  // samples that found no room and will be silence in the ring

  PeakLevels heardLevels;
  PeakLevels playedLevels;
  std::atomic<std::int64_t> samples = 0;
  std::atomic<std::int64_t> lateCalls = 0;
  std::atomic<std::int64_t> lateSamples = 0;
  std::atomic<std::int64_t> lostSamples = 0;
};

}  // namespace Live
