#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "audio/SampleFormat.h"

namespace Audio {

struct WavFormat {
  int samplingRate = 16000;  ///< Hz
  int channels = 1;
  SampleFormat samples = SampleFormat::Pcm16;
};

/// Writes a WAV file that appears under its name only when it is complete (see OutputFile).
///
/// Samples beyond the range of a whole-number format are clipped and counted; samples that are not
/// finite are written as 0 and counted.
class WavWriter {
 public:
  /// Throws DataError as OutputFile does.
  WavWriter(const std::string& path, const WavFormat& wavFormat, bool overwrite);

  /// Removes the file unless it was finished.
  ~WavWriter();
  WavWriter(WavWriter&&) noexcept;
  WavWriter& operator=(WavWriter&&) noexcept;

  /// Appends `count` samples of every channel, channels in turn; full scale is −1 … 1. Throws
  /// DataError when the disk is full, the file cannot be written or would exceed 4 GB.
  void write(const float* samples, std::size_t count);
  void writeSilence(std::int64_t count);

  /// Closes the file until something is written again: it is none of the process's open files, of
  /// which there may be about a thousand. Throws DataError.
  void suspend();

  /// Ends the file's content and waits until it is on the disk. Throws DataError.
  void sync();

  /// Syncs the file and gives it its name. Nothing can be written after it. Throws DataError.
  void finish();

  std::int64_t samplesWritten() const;  ///< per channel
  std::int64_t clippedSamples() const;  ///< values, of all channels together
  std::int64_t nonFiniteSamples() const;
  float peak() const;  ///< largest modulus that was given to write(), before clipping

 private:
  struct Impl;
  std::unique_ptr<Impl> impl;
};

}  // namespace Audio
