#pragma once

#include <cstddef>
#include <vector>

#include "geometry/Location.h"

namespace Separation {

/// Impulse responses from source positions to every microphone, whole: direct sound and everything
/// that the room adds.
struct ImpulseResponses {
  std::vector<BF::SourceLocation> positions;  ///< P source positions, metres; ids do not count
  std::size_t microphones = 0;                ///< M
  std::size_t taps = 0;                       ///< T samples
  int samplingRate = 0;                       ///< Hz, of the recordings to be separated as well
  std::vector<float> samples;                 ///< P × M × T values

  /// T values: from position p to microphone m.
  const float* response(std::size_t p, std::size_t m) const {
    return samples.data() + (p * microphones + m) * taps;
  }
};

}  // namespace Separation
