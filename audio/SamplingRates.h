#pragma once

#include <string>

namespace Audio {

constexpr int MAX_SAMPLING_RATE = 10'000'000;  ///< Hz

/// The rate itself. Throws DataError unless it lies between 1 and MAX_SAMPLING_RATE.
int checkedSamplingRate(int samplingRate);

/// Refuses to convert between sampling rates whose ratio is beyond 1000: what says so is no
/// recording, and the conversion takes time and memory that grow with the ratio. Throws DataError
/// naming the file.
void checkConversion(const std::string& path, int fileRate, int wantedRate);

}  // namespace Audio
