#include "audio/SamplingRates.h"

#include <fmt/format.h>

#include "dsp/AudioError.h"

namespace Audio {

void checkConversion(const std::string& path, int fileRate, int wantedRate) {
  constexpr double MOST = 1000.0;
  if (fileRate <= MOST * wantedRate && wantedRate <= MOST * fileRate) return;
  throw AudioError(
      fmt::format("{}: the sampling rate is {} Hz, expected {} to {} Hz for a conversion to {} Hz",
                  path, fileRate, wantedRate / MOST, wantedRate * MOST, wantedRate));
}

}  // namespace Audio
