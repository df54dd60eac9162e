#pragma once

#include <stdexcept>
#include <string>
#include <vector>

/// A signal file cannot be used; what() names the file, what was found and what was expected.
class SignalError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One channel of an audio file, whole in memory.
struct Signal {
  std::vector<float> samples;  ///< full scale is −1 … 1
  int samplingRate = 0;        ///< Hz
};

/// Reads a file's channel `channel`, counted from 1; a file that has only one gives that one.
/// Throws SignalError when a sample is not finite or there are none, AudioError when the file
/// cannot be read or lacks the channel. Warnings about the file go to standard error.
Signal readSignal(const std::string& path, int channel);

/// Reads a headerless file of 16-bit samples, little-endian, one channel. Throws SignalError when
/// it is empty, ends within a sample or begins as a WAV file does, AudioError when it cannot be
/// read.
Signal readRawSignal(const std::string& path, int samplingRate);

/// The signal at another rate. Throws SignalError naming `path`, or AudioError for a ratio of the
/// rates that no sound needs (checkConversion).
Signal resampled(const Signal& signal, int samplingRate, const std::string& path);
