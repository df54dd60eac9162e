#pragma once

#include <cstdint>

namespace Audio {

/// Which samples of a recording belong to which frame: the one place that says so.
///
/// Frame f (f = 0, 1, …) holds `length` samples from sample start(f) = f · advance − (length −
/// advance) on; samples before the recording and after it count as zeros. So frame 0 brings the
/// first `advance` samples, and every sample of the recording lies in as many frames as the window
/// allows, the first and the last sample included.
class FrameLayout {
 public:
  /// Throws DataError unless 1 ≤ lengthValue ≤ 2²⁴ and 1 ≤ advanceValue ≤ lengthValue.
  FrameLayout(int lengthValue, int advanceValue);

  int length() const { return samplesPerFrame; }
  int advance() const { return samplesPerStep; }

  /// Frequency bins of a frame: length/2 + 1.
  int bins() const { return samplesPerFrame / 2 + 1; }

  /// Number of the frame's first sample; negative for the first frames. Samples before it are in
  /// no frame from this one on.
  std::int64_t start(std::int64_t frame) const {
    return (frame + 1) * samplesPerStep - samplesPerFrame;
  }

  /// The time that stands for the frame, in seconds: that of its centre, start + length/2, but not
  /// before the recording's begin at 0.
  double time(std::int64_t frame, int samplingRate) const;

  /// Frames of a recording of that many samples: all that begin before its end; 0 without samples.
  std::int64_t frameCount(std::int64_t samples) const;

 private:
  int samplesPerFrame;
  int samplesPerStep;
};

}  // namespace Audio
