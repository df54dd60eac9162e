#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "audio/SignalFile.h"

/// How a recording is cut into frames, in samples.
struct SpectrogramFrames {
  int length = 512;
  int advance = 128;
};

/// Levels of one channel of a recording by time and frequency, from Hann-windowed frames. Long
/// recordings have the mean power of several frames in a column, so that a spectrogram's size does
/// not grow with them.
struct Spectrogram {
  std::string name;            ///< of the file, with the channel if it has several
  int samplingRate = 0;        ///< Hz
  double duration = 0.0;       ///< seconds
  double begin = 0.0;          ///< seconds: where the first column begins
  double columnSeconds = 0.0;  ///< seconds from column to column
  std::size_t bins = 0;        ///< from 0 Hz to half the sampling rate
  std::vector<float> levels;   ///< dB, bins in turn; 0: a sine of full scale; −∞: silence

  std::size_t columns() const { return levels.size() / bins; }
  float level(std::size_t column, std::size_t bin) const { return levels[column * bins + bin]; }
};

/// Reads a file; channels as "1-4,7", empty for all; a file that has only one gives that one.
/// Throws DataError when the file cannot be read, lacks a channel or holds no samples. Warnings
/// about the file go to standard error.
std::vector<Spectrogram> readSpectrograms(const std::string& path, const std::string& channels,
                                          const SpectrogramFrames& frames);

/// The same of samples in memory, of which there must be some.
Spectrogram spectrogramOf(const std::string& name, const Signal& signal,
                          const SpectrogramFrames& frames);
