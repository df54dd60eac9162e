#pragma once

#include <string>
#include <vector>

namespace Audio {
class AudioReader;
}

/// One channel of an audio file, whole in memory.
struct Signal {
  std::vector<float> samples;  ///< full scale is −1 … 1
  int samplingRate = 0;        ///< Hz
};

/// All samples that the reader of one channel has left. Throws what it throws.
Signal restOf(Audio::AudioReader& reader);

/// Reads a file's channel `channel`, counted from 1; a file that has only one gives that one.
/// Throws DataError when a sample is not finite or there are none, or when the file cannot
/// be read or lacks the channel. Warnings about the file go to standard error.
Signal readSignal(const std::string& path, int channel);

/// Reads a headerless file of 16-bit samples, little-endian, one channel. Throws DataError when
/// it is empty, ends within a sample, begins as a WAV file does or cannot be read.
Signal readRawSignal(const std::string& path, int samplingRate);

/// The signal at another rate. Throws DataError naming `path`, also for a ratio of the
/// rates that no sound needs (checkConversion).
Signal resampled(const Signal& signal, int samplingRate, const std::string& path);
