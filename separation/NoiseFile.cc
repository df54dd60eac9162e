#include "separation/NoiseFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <complex>
#include <cstddef>

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
                                ranges.empty() ? "the file" : "one of the time ranges"));
  }
  return noise;
}

std::vector<BF::Matrix> noiseMatrices(const NoiseCorrelation& noise, double loading,
                                      bool normalize) {
  const auto size = static_cast<std::size_t>(noise.microphones() * noise.microphones());
  std::vector<std::complex<float>> values(static_cast<std::size_t>(noise.bins()) * size);
  noise.write(loading, normalize, values.data());
  std::vector<BF::Matrix> matrices(static_cast<std::size_t>(noise.bins()),
                                   BF::Matrix(noise.microphones(), noise.microphones()));
  for (std::size_t i = 0; i < values.size(); ++i) {
    matrices[i / size].data()[i % size] = std::complex<double>(values[i]);
  }
  return matrices;
}

}  // namespace Audio
