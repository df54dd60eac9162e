#pragma once

#include <complex>
#include <cstddef>
#include <vector>

#include "dsp/FrameLayout.h"
#include "dsp/RealFft.h"
#include "dsp/Window.h"

namespace Audio {

/// Windows the frames of a multichannel signal and transforms each channel of each frame.
class FrameAnalyzer {
 public:
  FrameAnalyzer(int channelCount, const FrameLayout& frameLayout, WindowType windowType);

  /// windowValues: as many as a frame has samples.
  FrameAnalyzer(int channelCount, const FrameLayout& frameLayout, std::vector<float> windowValues);

  /// Moves on to the next frame, at first to frame 0. newest holds the samples that it brings,
  /// interleaved: `count` of each channel, zeros for the rest of the advance.
  void add(const float* newest, std::size_t count);

  /// Spectra of the frame that was added last: channels × bins values, a row per channel.
  const std::vector<std::complex<float>>& spectra() const { return values; }

 private:
  std::size_t channels;
  std::size_t advance;
  std::size_t bins;
  std::vector<float> window;
  RealFft fft;
  std::vector<float> samples;  // channels × length: the frame, before the window
  std::vector<float> windowed;
  std::vector<std::complex<float>> values;
};

}  // namespace Audio
