#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "tests/support/TestFolder.h"

/// Interleaved samples and what a file says about them.
struct Sound {
  int samplingRate = 0;
  int channels = 0;
  int format = 0;  ///< libsndfile's
  std::vector<float> samples;
};

/// Reads and writes through libsndfile alone, so that the classes under test are not their own
/// witness. format 0: WAV with 32-bit floating point.
Sound readSound(const std::string& path);
void writeSound(const std::string& path, int samplingRate, int channels,
                const std::vector<float>& samples, int format = 0);

/// Reproducible noise between −amplitude and amplitude.
std::vector<float> noise(std::size_t count, unsigned seed, float amplitude = 0.5F);

/// Energy of the difference relative to that of the expectation, in dB; −inf when they are equal.
/// Reports a failure and returns +inf when lengths differ or a value is not finite.
double differenceInDb(const std::vector<float>& actual, const std::vector<float>& expected);

/// The text of the exception of type E that action throws; a failure and "" when it does not.
template <class E, class Action>
std::string messageOf(Action action) {
  try {
    action();
  } catch (const E& error) {
    return error.what();
  }
  ADD_FAILURE() << "nothing was thrown";
  return "";
}
