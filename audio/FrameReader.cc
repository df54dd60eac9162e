#include "audio/FrameReader.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace Audio {

FrameReader::FrameReader(AudioReader audioFile, const FrameLayout& frameLayout,
                         WindowType windowType)
    : FrameReader(std::move(audioFile), frameLayout, makeWindow(windowType, frameLayout.length())) {
}

FrameReader::FrameReader(AudioReader audioFile, const FrameLayout& frameLayout,
                         std::vector<float> window)
    : audio(std::move(audioFile)),
      layout(frameLayout),
      analyzer(audio.channelCount(), frameLayout, std::move(window)) {
  ahead.resize(static_cast<std::size_t>(audio.channelCount()) *
               static_cast<std::size_t>(layout.advance()));
  readAhead();
}

void FrameReader::readAhead() {
  aheadCount = audio.read(ahead.data(), static_cast<std::size_t>(layout.advance()));
  total += static_cast<std::int64_t>(aheadCount);
}

bool FrameReader::next() {
  if (!hasFrame(current + 1)) return false;
  ++current;
  analyzer.add(ahead.data(), aheadCount);
  readAhead();
  return true;
}

int FrameReader::completedSamples() const {
  const std::int64_t begin = std::clamp<std::int64_t>(layout.start(current), 0, total);
  const std::int64_t end = std::clamp<std::int64_t>(layout.start(current + 1), 0, total);
  return static_cast<int>(end - begin);
}

bool FrameReader::isWhole() const { return start() >= 0 && start() + layout.length() <= total; }

}  // namespace Audio
