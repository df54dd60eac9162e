#pragma once

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <vector>

namespace Live {

/// The greatest magnitude of each of several channels since it was last asked for: noted by one
/// thread, asked for by another, and neither waits. A peak that is noted while it is asked for may
/// be left out.
class PeakLevels {
 public:
  explicit PeakLevels(std::size_t channels) : peaks(channels) {}

  std::size_t channels() const { return peaks.size(); }

  void note(std::size_t channel, const float* samples, std::size_t count) noexcept {
    float peak = peaks[channel].load(std::memory_order_relaxed);
    for (std::size_t n = 0; n < count; ++n) peak = std::max(peak, std::abs(samples[n]));
    peaks[channel].store(peak, std::memory_order_relaxed);
  }

  float take(std::size_t channel) noexcept { return peaks[channel].exchange(0.0F); }

 private:
  std::vector<std::atomic<float>> peaks;
};

}  // namespace Live
