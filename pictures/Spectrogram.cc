#include "pictures/Spectrogram.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

#include "audio/AudioReader.h"
#include "audio/Channels.h"
#include "audio/FrameReader.h"
#include "dsp/DataError.h"
#include "dsp/FrameAnalyzer.h"
#include "dsp/Window.h"
#include "pictures/LevelColumns.h"

namespace {

/// Power that a sine of full scale has in its bin: (½ · Σ w)².
double fullScalePower(int length) {
  const std::vector<float> window = Audio::makeWindow(Audio::WindowType::Hann, length);
  const double sum = std::accumulate(window.begin(), window.end(), 0.0) / 2.0;
  return sum * sum;
}

/// Names and times; `first` is the first frame that counts.
Spectrogram described(const std::string& name, int samplingRate, const Audio::FrameLayout& layout,
                      std::int64_t first, std::size_t framesPerColumn) {
  Spectrogram result;
  result.name = name;
  result.samplingRate = samplingRate;
  result.bins = static_cast<std::size_t>(layout.bins());
  const auto seconds = [&](double samples) { return samples / result.samplingRate; };
  result.begin = seconds(static_cast<double>(layout.start(first)) +
                         (layout.length() - layout.advance()) / 2.0);
  result.columnSeconds = seconds(layout.advance() * static_cast<double>(framesPerColumn));
  return result;
}

}  // namespace

std::vector<Spectrogram> readSpectrograms(const std::string& path, const std::string& channels,
                                          const SpectrogramFrames& frames) {
  const Audio::FrameLayout layout(frames.length, frames.advance);
  Audio::AudioReaderOptions options;
  options.channelsName = "--channel";
  options.channels = channels;
  options.channelsOfSeveral = true;
  Audio::FrameReader reader(Audio::AudioReader(path, options), layout, Audio::WindowType::Hann);
  const int fileChannels = reader.file().fileChannels();
  const std::vector<int> numbers =
      Audio::selectedChannels(fileChannels > 1 ? channels : "", fileChannels);
  const auto bins = static_cast<std::size_t>(layout.bins());
  std::vector<LevelColumns> columns(numbers.size(), LevelColumns(bins));
  std::int64_t samples = 0;
  std::int64_t first = 0;
  while (reader.next()) {
    samples += reader.completedSamples();
    // Frames whose middle lies before the recording show silence that it does not have.
    if (reader.start() + layout.length() / 2 < 0) {
      first = reader.frame() + 1;
      continue;
    }
    for (std::size_t c = 0; c < columns.size(); ++c)
      columns[c].add(reader.spectra().data() + c * bins);
  }
  if (samples == 0) {
    throw DataError(path + ": holds no samples, expected one at least");
  }
  std::vector<Spectrogram> result;
  for (std::size_t c = 0; c < columns.size(); ++c) {
    Spectrogram one =
        described(path, reader.file().samplingRate(), layout, first, columns[c].framesPerColumn());
    one.duration = static_cast<double>(samples) / one.samplingRate;
    one.levels = columns[c].levels(fullScalePower(layout.length()));
    if (fileChannels > 1) one.name += fmt::format(", channel {}", numbers[c] + 1);
    result.push_back(std::move(one));
  }
  return result;
}

Spectrogram spectrogramOf(const std::string& name, const Signal& signal,
                          const SpectrogramFrames& frames) {
  const Audio::FrameLayout layout(frames.length, frames.advance);
  Audio::FrameAnalyzer analyzer(1, layout, Audio::WindowType::Hann);
  LevelColumns columns(static_cast<std::size_t>(layout.bins()));
  const auto samples = static_cast<std::int64_t>(signal.samples.size());
  std::int64_t first = 0;
  for (std::int64_t frame = 0; frame < layout.frameCount(samples); ++frame) {
    const std::int64_t begin = std::min(samples, frame * layout.advance());
    const std::int64_t count = std::min<std::int64_t>(samples - begin, layout.advance());
    analyzer.add(signal.samples.data() + begin, static_cast<std::size_t>(count));
    if (layout.start(frame) + layout.length() / 2 < 0) {
      first = frame + 1;
    } else {
      columns.add(analyzer.spectra().data());
    }
  }
  Spectrogram result =
      described(name, signal.samplingRate, layout, first, columns.framesPerColumn());
  result.duration = static_cast<double>(samples) / signal.samplingRate;
  result.levels = columns.levels(fullScalePower(layout.length()));
  return result;
}
