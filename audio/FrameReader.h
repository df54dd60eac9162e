#pragma once

#include <complex>
#include <cstdint>
#include <vector>

#include "audio/AudioReader.h"
#include "dsp/FrameAnalyzer.h"
#include "dsp/FrameLayout.h"
#include "dsp/Window.h"

namespace Audio {

/// Cuts a recording into windowed frames and transforms each channel of each frame, in one pass
/// that holds one frame of samples.
class FrameReader {
 public:
  FrameReader(AudioReader audioFile, const FrameLayout& frameLayout, WindowType windowType);

  /// window: as many values as a frame has samples.
  FrameReader(AudioReader audioFile, const FrameLayout& frameLayout, std::vector<float> window);

  int channelCount() const { return audio.channelCount(); }
  int bins() const { return layout.bins(); }
  int length() const { return layout.length(); }
  const AudioReader& file() const { return audio; }

  /// Moves on to the next frame, at first to frame 0. False when the recording has no more frames.
  /// Throws DataError when the file cannot be decoded.
  bool next();

  // ---- the frame that next() moved to

  std::int64_t frame() const { return current; }

  /// Number of the frame's first sample.
  std::int64_t start() const { return layout.start(current); }

  /// channelCount() × bins() values, a row per channel.
  const std::vector<std::complex<float>>& spectra() const { return analyzer.spectra(); }

  /// How many samples of the recording have this frame as their last one. The frames' counts add
  /// up to the recording's length exactly, so a writer that writes as many per frame makes a file
  /// that is as long as the recording and aligned with it.
  int completedSamples() const;

  /// Whether this is the recording's last frame.
  bool isLast() const { return !hasFrame(current + 1); }

  /// Whether all samples of the frame lie in the recording, so that none is a padding zero.
  bool isWhole() const;

 private:
  /// Whether a frame exists, given that the samples before its newest ones were read.
  bool hasFrame(std::int64_t frame) const {
    return aheadCount > 0 || (total > 0 && layout.start(frame) < total);
  }
  void readAhead();

  AudioReader audio;
  FrameLayout layout;
  FrameAnalyzer analyzer;
  std::vector<float> ahead;  // the samples that the next frame brings, interleaved
  std::size_t aheadCount = 0;
  std::int64_t total = 0;  // samples read, those ahead included
  std::int64_t current = -1;
};

}  // namespace Audio
