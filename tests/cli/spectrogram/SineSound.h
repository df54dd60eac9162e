#pragma once

#include <cmath>
#include <numbers>
#include <vector>

/// A sine between two times (seconds) of a recording that is silent otherwise.
struct SineSound {
  int samplingRate = 16000;
  double seconds = 3.0;
  double frequency = 2000.0;
  double amplitude = 0.5;
  double begin = 1.0;
  double end = 2.0;

  std::vector<float> samples() const {
    std::vector<float> result(static_cast<std::size_t>(seconds * samplingRate));
    for (std::size_t n = 0; n < result.size(); ++n) {
      const double t = static_cast<double>(n) / samplingRate;
      if (t < begin || t >= end) continue;
      result[n] = static_cast<float>(amplitude * std::sin(2.0 * std::numbers::pi * frequency * t));
    }
    return result;
  }
};
