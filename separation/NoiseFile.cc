#include "separation/NoiseFile.h"

#include <fmt/format.h>

#include <algorithm>

#include "dsp/DataError.h"

namespace Audio {

NoiseCorrelation noiseOfFile(FrameReader& reader, const std::vector<TimeRange>& ranges) {
  const double rate = reader.file().samplingRate();
  NoiseCorrelation noise(reader.channelCount(), reader.bins(), 1.0);
  while (reader.next()) {
    if (!reader.isWhole()) continue;
    const double begin = static_cast<double>(reader.start()) / rate;
    const double end = static_cast<double>(reader.start() + reader.length()) / rate;
    const bool isWanted =
        ranges.empty() || std::any_of(ranges.begin(), ranges.end(), [&](const TimeRange& range) {
          return range.begin <= begin && end <= range.end;
        });
    if (isWanted) noise.add(reader.spectra().data());
  }
  if (noise.frames() == 0) {
    throw DataError(fmt::format("{}: no whole frame of {} samples ({:.4f} s) lies in {}",
                                reader.file().path(), reader.length(), reader.length() / rate,
                                ranges.empty() ? "the file" : "one of the RANGES"));
  }
  return noise;
}

}  // namespace Audio
