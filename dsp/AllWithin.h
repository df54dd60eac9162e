#pragma once

#include <cmath>
#include <cstddef>

namespace Audio {

/// Whether |samples[i]| ≤ limit for all of them, which none is that is not a number.
inline bool allWithin(const float* samples, std::size_t count, float limit) {
  // Counted, because a loop that leaves early is not turned into vectors.
  std::size_t within = 0;
  for (std::size_t i = 0; i < count; ++i) within += std::abs(samples[i]) <= limit ? 1 : 0;
  return within == count;
}

}  // namespace Audio
