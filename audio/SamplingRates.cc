#include "audio/SamplingRates.h"

#include <fmt/format.h>

#include "dsp/AudioError.h"

namespace Audio {

int checkedSamplingRate(int samplingRate) {
  constexpr int HIGHEST_RATE = 10'000'000;
  if (samplingRate < 1 || samplingRate > HIGHEST_RATE) {
    throw AudioError(
        fmt::format("SAMPLING_RATE is {}, expected 1 to {} Hz", samplingRate, HIGHEST_RATE));
  }
  return samplingRate;
}

void checkConversion(const std::string& path, int fileRate, int wantedRate) {
  constexpr double MOST = 1000.0;
  if (fileRate <= MOST * wantedRate && wantedRate <= MOST * fileRate) return;
  throw AudioError(
      fmt::format("{}: the sampling rate is {} Hz, expected {} to {} Hz for a conversion to {} Hz",
                  path, fileRate, wantedRate / MOST, wantedRate * MOST, wantedRate));
}

}  // namespace Audio
