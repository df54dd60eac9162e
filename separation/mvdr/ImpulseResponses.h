#pragma once

#include <cstddef>
#include <vector>

#include "geometry/Location.h"

namespace Separation {

/// Impulse responses from a grid of source positions to every microphone, whole: direct sound and
/// everything the room adds.
struct ImpulseResponses {
  std::vector<BF::SourceLocation> positions;  ///< P source positions, metres
  std::size_t microphones = 0;                ///< M
  std::size_t taps = 0;                       ///< T samples at samplingRate
  int samplingRate = 0;                       ///< Hz
  std::vector<double> samples;                ///< P × M × T values

  /// T values: from position p to microphone m.
  const double* response(std::size_t p, std::size_t m) const {
    return samples.data() + (p * microphones + m) * taps;
  }
};

}  // namespace Separation
