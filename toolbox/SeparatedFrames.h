#pragma once

#include <complex>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "audio/SeparatedFiles.h"
#include "dsp/OverlapAdder.h"
#include "separation/SourceSignals.h"

/// Writes the spectra of separated sources, frame by frame, as files: the sum of their frames in
/// Audio::SeparatedFiles.
class SeparatedFrames {
 public:
  /// Throws DataError as Audio::SeparatedFiles does.
  SeparatedFrames(const Audio::SeparatedFilesOptions& options, Audio::FrameSynthesizer synthesizer);

  /// Spectra (bins() values each, not owned) by source id.
  using Spectra = std::map<int, const std::complex<float>*>;

  /// Takes the next frame, at first frame 0. completedSamples is what
  /// FrameReader::completedSamples() says of the frame: that many samples are written to every
  /// file. Without it, as many as the frame's advance says, as if the recording had no end. Throws
  /// DataError.
  void addFrame(const Spectra& spectra, std::optional<int> completedSamples);

  /// Completes the files; without counts of completed samples, what the last frames hold beyond
  /// them is written first. Returns what a person should know of them, a line each. Throws
  /// DataError.
  std::vector<std::string> finish();

  bool isFinished() const { return files.isFinished(); }

 private:
  static constexpr std::int64_t UNKNOWN = std::numeric_limits<std::int64_t>::max();

  void takeCount(int count);
  void finishFrame();

  Audio::FrameLayout layout;
  Audio::SeparatedFiles files;
  Separation::SourceSignals signals;
  std::int64_t total = UNKNOWN;  // samples of the recording, once its end was reached
  bool isCounted = false;        // the last frame said how many samples it completes
};
