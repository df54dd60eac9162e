#pragma once

#include <complex>
#include <vector>

#include "dsp/FrameLayout.h"
#include "dsp/FrameWindows.h"
#include "dsp/RealFft.h"
#include "dsp/Window.h"

namespace Audio {

/// Turns the spectrum of one frame back into its share of the sound.
///
/// With the windows a before and w after, which covers the last S samples of a frame, and the last
/// S samples y_f of the frames' inverse transforms, which begin at start_f, the sound is
///   s(n) = Σ_f w(n − start_f) · y_f(n − start_f) / Σ_f a(n − start_f) · w(n − start_f),
/// which gives unchanged spectra back as the recording. The sum below depends on n modulo the
/// advance only, so it is divided out frame by frame.
class FrameSynthesizer {
 public:
  /// halfFrameShift: the spectra's odd bins are negated first, which undoes a circular shift by
  /// half a frame (a factor e^(jkπ) on bin k). Throws DataError when the frames overlap too little
  /// for the windows: when the sum of products above falls below 10⁻⁴ of its maximum anywhere,
  /// where single precision would no longer keep errors below −100 dB.
  FrameSynthesizer(const FrameLayout& frameLayout, WindowType windowType, bool halfFrameShift);
  FrameSynthesizer(const FrameLayout& frameLayout, const FrameWindows& windows,
                   bool halfFrameShift);

  /// Where the samples belong that a frame gives: each frame's last S ones.
  const FrameLayout& frames() const { return layout; }

  /// A frame's bins to frames().length() samples to be added up at its place. The result is valid
  /// until the next call.
  const std::vector<float>& synthesize(const std::complex<float>* spectrum);

 private:
  FrameLayout layout;
  bool negateOddBins;
  std::vector<float> gains;  // w(n) / Σ a·w, per sample that a frame gives
  RealFft fft;
  std::vector<std::complex<float>> shifted;
  std::vector<float> samples;  // of the whole frame
  std::vector<float> given;
};

/// Adds up the frames of one sound.
class OverlapAdder {
 public:
  explicit OverlapAdder(const FrameLayout& frameLayout);

  /// Moves on to the next frame, at first to frame 0, and adds that frame's samples (length()
  /// values); null: a silent frame.
  void add(const float* frameSamples);

  /// The samples of the frame that was added last, from its start on. The first advance() of them
  /// are finished: no later frame adds to them.
  const std::vector<float>& sum() const { return sums; }

 private:
  FrameLayout layout;
  std::vector<float> sums;
};

}  // namespace Audio
