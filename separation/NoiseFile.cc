#include "separation/NoiseFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "dsp/DataError.h"
#include "dsp/FrameAnalyzer.h"

namespace Audio {

namespace {

/// Which frames count, at a sampling rate.
class NoiseTimes {
 public:
  NoiseTimes(const std::vector<TimeRange>& timeRanges, int samplingRate)
      : ranges(timeRanges), rate(samplingRate) {}

  bool hold(std::int64_t start, int length) const {
    const double begin = static_cast<double>(start) / rate;
    const double end = static_cast<double>(start + length) / rate;
    return ranges.empty() || std::any_of(ranges.begin(), ranges.end(), [&](const TimeRange& range) {
             return range.begin <= begin && end <= range.end;
           });
  }

  /// Whether no frame that begins at `start` or later is held.
  bool end(std::int64_t start) const {
    const double begin = static_cast<double>(start) / rate;
    return !ranges.empty() && std::all_of(ranges.begin(), ranges.end(),
                                          [&](const auto& range) { return range.end <= begin; });
  }

  void requireFrames(const NoiseCorrelation& noise, int length, const std::string& name) const {
    if (noise.frames() > 0) return;
    throw DataError(fmt::format("{}: no whole frame of {} samples ({:.4f} s) lies in {}", name,
                                length, length / rate,
                                ranges.empty() ? "the file" : "one of the time ranges"));
  }

 private:
  const std::vector<TimeRange>& ranges;
  double rate;
};

}  // namespace

NoiseCorrelation noiseOfFile(FrameReader& reader, const std::vector<TimeRange>& ranges) {
  const NoiseTimes times(ranges, reader.file().samplingRate());
  NoiseCorrelation noise(reader.channelCount(), reader.bins(), 1.0);
  while (reader.next()) {
    if (reader.isWhole() && times.hold(reader.start(), reader.length())) {
      noise.add(reader.spectra().data());
    }
  }
  times.requireFrames(noise, reader.length(), reader.file().path());
  return noise;
}

NoiseCorrelation noiseOfSamples(const RecordedSamples& recording, const FrameLayout& layout,
                                std::vector<float> window, const std::vector<TimeRange>& ranges,
                                const std::string& name) {
  const NoiseTimes times(ranges, recording.samplingRate);
  FrameAnalyzer analyzer(recording.channels, layout, std::move(window));
  NoiseCorrelation noise(recording.channels, layout.bins(), 1.0);
  const auto advance = static_cast<std::size_t>(layout.advance());
  const auto channels = static_cast<std::size_t>(recording.channels);
  // Frames that end within the recording, and of them those that begin there.
  for (std::size_t f = 0; (f + 1) * advance <= recording.count; ++f) {
    const std::int64_t start = layout.start(static_cast<std::int64_t>(f));
    if (times.end(start)) break;
    analyzer.add(recording.values + f * advance * channels, advance);
    if (start >= 0 && times.hold(start, layout.length())) noise.add(analyzer.spectra().data());
  }
  times.requireFrames(noise, layout.length(), name);
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
