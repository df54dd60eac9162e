#include "audio/SamplingRates.h"

#include <fmt/format.h>

#include "dsp/DataError.h"

namespace Audio {

int checkedSamplingRate(int samplingRate) {
  if (samplingRate < 1 || samplingRate > MAX_SAMPLING_RATE) {
    throw DataError(
        fmt::format("SAMPLING_RATE is {}, expected 1 to {} Hz", samplingRate, MAX_SAMPLING_RATE));
  }
  return samplingRate;
}

void checkConversion(const std::string& path, int fileRate, int wantedRate) {
  constexpr double MAX_RATIO = 1000.0;
  if (fileRate <= MAX_RATIO * wantedRate && wantedRate <= MAX_RATIO * fileRate) return;
  throw DataError(
      fmt::format("{}: the sampling rate is {} Hz, expected {} to {} Hz for a conversion to {} Hz",
                  path, fileRate, wantedRate / MAX_RATIO, wantedRate * MAX_RATIO, wantedRate));
}

}  // namespace Audio
