#pragma once

#include <cmath>
#include <numbers>
#include <vector>

/// A sine in the middle second of three, the others silent.
struct SineSound {
  int samplingRate = 16000;
  double frequency = 2000.0;
  double amplitude = 0.5;

  std::vector<float> samples() const {
    std::vector<float> result(static_cast<std::size_t>(3 * samplingRate));
    for (int n = samplingRate; n < 2 * samplingRate; ++n) {
      const double phase = 2.0 * std::numbers::pi * frequency * n / samplingRate;
      result[static_cast<std::size_t>(n)] = static_cast<float>(amplitude * std::sin(phase));
    }
    return result;
  }
};
