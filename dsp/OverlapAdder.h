#pragma once

#include <complex>
#include <vector>

#include "dsp/FrameLayout.h"
#include "dsp/RealFft.h"
#include "dsp/Window.h"

namespace Audio {

/// Turns the spectrum of one frame back into its share of the sound.
///
/// With the window w of length L, analysis and synthesis alike, and the frames' inverse transforms
/// y_f, the sound is
///   s(n) = Σ_f w(n − start_f) · y_f(n − start_f) / Σ_f w(n − start_f)²,
/// which gives unchanged spectra back as the recording. The sum below depends on n modulo the
/// advance only, so it is divided out frame by frame.
class FrameSynthesizer {
 public:
  /// halfFrameShift: the spectra's odd bins are negated first, which undoes a circular shift by
  /// half a frame (a factor e^(jkπ) on bin k). Throws DataError when the frames overlap too little
  /// for the window: when the sum of squares above falls below 10⁻⁴ of its maximum anywhere, where
  /// single precision would no longer keep errors below −100 dB.
  FrameSynthesizer(const FrameLayout& frameLayout, WindowType windowType, bool halfFrameShift);

  const FrameLayout& frames() const { return layout; }

  /// bins() values to length() samples to be added up at the frame's place. The result is valid
  /// until the next call.
  const std::vector<float>& synthesize(const std::complex<float>* spectrum);

 private:
  FrameLayout layout;
  bool negateOddBins;
  std::vector<float> gains;  // w(n) / Σ w², per sample of the frame
  RealFft fft;
  std::vector<std::complex<float>> shifted;
  std::vector<float> samples;
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
