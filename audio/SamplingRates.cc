#include "audio/SamplingRates.h"

#include <fmt/format.h>

#include "dsp/DataError.h"

namespace Audio {

void checkConversion(const std::string& path, int fileRate, int wantedRate) {
  constexpr double MAX_RATIO = 1000.0;
  if (fileRate <= MAX_RATIO * wantedRate && wantedRate <= MAX_RATIO * fileRate) return;
  throw DataError(
      fmt::format("{}: the sampling rate is {} Hz, expected {} to {} Hz for a conversion to {} Hz",
                  path, fileRate, wantedRate / MAX_RATIO, wantedRate * MAX_RATIO, wantedRate));
}

}  // namespace Audio
