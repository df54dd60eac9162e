#pragma once

#include <cstddef>
#include <vector>

#include "fileio/SofaFile.h"

/// Impulse responses of M source positions (measurements) to R microphones (receivers), N samples
/// each: sample n of (m, r), at values[(m · R + r) · N + n], belongs to the time
/// (n + delays[m · R + r]) / rate seconds.
struct MeasuredResponses {
  std::size_t measurements = 0;
  std::size_t receivers = 0;
  std::size_t length = 0;
  double rate = 0.0;           ///< Hz
  std::vector<float> values;   ///< M · R · N
  std::vector<double> delays;  ///< M · R, samples, may be fractional or negative

  const float* at(std::size_t m, std::size_t r) const {
    return values.data() + (m * receivers + r) * length;
  }
  double delay(std::size_t m, std::size_t r) const { return delays[m * receivers + r]; }
};

/// Reads the responses of a file of either data type; those of transfer functions by
/// inverseTransforms. Throws DataError.
MeasuredResponses readMeasuredResponses(const SofaFile& file);
