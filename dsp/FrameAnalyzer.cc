#include "dsp/FrameAnalyzer.h"

#include <algorithm>
#include <utility>

namespace Audio {

FrameAnalyzer::FrameAnalyzer(int channelCount, const FrameLayout& frameLayout,
                             WindowType windowType)
    : FrameAnalyzer(channelCount, frameLayout, makeWindow(windowType, frameLayout.length())) {}

FrameAnalyzer::FrameAnalyzer(int channelCount, const FrameLayout& frameLayout,
                             std::vector<float> windowValues)
    : channels(static_cast<std::size_t>(channelCount)),
      advance(static_cast<std::size_t>(frameLayout.advance())),
      bins(static_cast<std::size_t>(frameLayout.bins())),
      window(std::move(windowValues)),
      fft(frameLayout.length()),
      samples(channels * window.size()),
      windowed(window.size()),
      values(channels * bins) {}

void FrameAnalyzer::add(const float* newest, std::size_t count) {
  const std::size_t length = window.size();
  for (std::size_t c = 0; c < channels; ++c) {
    float* row = samples.data() + c * length;
    std::copy(row + advance, row + length, row);
    float* to = row + (length - advance);
    for (std::size_t n = 0; n < advance; ++n) to[n] = n < count ? newest[n * channels + c] : 0.0F;

    for (std::size_t n = 0; n < length; ++n) windowed[n] = row[n] * window[n];
    fft.forward(windowed.data(), values.data() + c * bins);
  }
}

}  // namespace Audio
