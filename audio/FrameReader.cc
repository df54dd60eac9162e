#include "audio/FrameReader.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace Audio {

FrameReader::FrameReader(AudioReader audioFile, const FrameLayout& frameLayout,
                         WindowType windowType)
    : audio(std::move(audioFile)),
      layout(frameLayout),
      window(makeWindow(windowType, frameLayout.length())),
      fft(frameLayout.length()),
      windowed(window.size()) {
  const auto channels = static_cast<std::size_t>(audio.channelCount());
  samples.resize(channels * window.size());
  values.resize(channels * static_cast<std::size_t>(layout.bins()));
  ahead.resize(channels * static_cast<std::size_t>(layout.advance()));
  readAhead();
}

void FrameReader::readAhead() {
  aheadCount = audio.read(ahead.data(), static_cast<std::size_t>(layout.advance()));
  total += static_cast<std::int64_t>(aheadCount);
}

bool FrameReader::next() {
  if (!hasFrame(current + 1)) return false;
  ++current;
  shiftIn();
  readAhead();
  transform();
  return true;
}

// Every channel: the frame moves on by `advance` samples, with zeros after the recording's end.
void FrameReader::shiftIn() {
  const auto channels = static_cast<std::size_t>(audio.channelCount());
  const std::size_t length = window.size();
  const auto advance = static_cast<std::size_t>(layout.advance());
  for (std::size_t c = 0; c < channels; ++c) {
    float* row = samples.data() + c * length;
    std::copy(row + advance, row + length, row);
    float* newest = row + (length - advance);
    for (std::size_t n = 0; n < advance; ++n) {
      newest[n] = n < aheadCount ? ahead[n * channels + c] : 0.0F;
    }
  }
}

void FrameReader::transform() {
  const auto channels = static_cast<std::size_t>(audio.channelCount());
  const std::size_t length = window.size();
  for (std::size_t c = 0; c < channels; ++c) {
    const float* row = samples.data() + c * length;
    for (std::size_t n = 0; n < length; ++n) windowed[n] = row[n] * window[n];
    fft.forward(windowed.data(), values.data() + c * static_cast<std::size_t>(layout.bins()));
  }
}

int FrameReader::finishedSamples() const {
  const std::int64_t begin = std::clamp<std::int64_t>(layout.start(current), 0, total);
  const std::int64_t end = std::clamp<std::int64_t>(layout.start(current + 1), 0, total);
  return static_cast<int>(end - begin);
}

bool FrameReader::isWhole() const { return start() >= 0 && start() + layout.length() <= total; }

}  // namespace Audio
