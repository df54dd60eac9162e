#pragma once

#include <complex>
#include <cstdint>
#include <vector>

#include "dsp/FrameLayout.h"
#include "separation/NoiseCorrelation.h"
#include "separation/Settings.h"

namespace Separation {

/// The noise correlation matrices that CML works with, frame by frame.
class NoiseModel {
 public:
  NoiseModel(const Settings& settings, int microphones);

  /// Looks at a frame: learns from it if it is one of noise alone. spectra: M × K values, a row per
  /// microphone; total: samples there are so far; hasTargets: whether a target is listed for it.
  void addFrame(std::int64_t frame, std::int64_t total, const std::complex<float>* spectra,
                bool hasTargets);

  /// Writes the matrices for a frame, one M × M matrix per bin, unless they are those that this
  /// wrote last; says whether it did. Frame 0 goes by zeros: the noise counts from frame 1 on.
  bool write(std::int64_t frame, std::vector<BF::Matrix>& matrices);

 private:
  bool isNoiseAlone(std::int64_t frame, std::int64_t total) const;

  NoiseSettings settings;
  Audio::FrameLayout layout;
  int samplingRate;
  std::int64_t echo;       // frames after one with targets that hold more than half a frame of them
  std::int64_t quiet = 0;  // frames since the last one with targets
  Audio::NoiseCorrelation mean;
  std::vector<std::complex<float>> result;  // K × M·M
  bool isNew = true;
  bool wroteZeros = false;
};

}  // namespace Separation
