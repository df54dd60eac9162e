#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "audio/RawFormat.h"

namespace Audio {

/// What becomes of samples that are not finite (NaN or infinite), or so large (beyond 10¹⁵) that
/// their spectra would not be. Only floating-point files can hold them.
enum class NonFinite {
  Zero,  ///< replaced by 0
  Keep   ///< passed on as they are
};

/// "ZERO" or "KEEP". Throws DataError for other names.
NonFinite nonFiniteNamed(const std::string& name);

struct AudioReaderOptions {
  std::string channels;                   ///< "1-4,7"; empty: all (see selectedChannels)
  std::string channelsName = "CHANNELS";  ///< what messages call them
  bool channelsOfSeveral = false;  ///< a file of one channel is taken whatever `channels` says
  int samplingRate = 0;            ///< wanted rate in Hz; 0: the file's own
  bool resample = false;           ///< convert a file of another rate; false: refuse it
  std::string resampleWords = "set RESAMPLE to true to convert it";  ///< for the refusal
  NonFinite nonFinite = NonFinite::Zero;
  /// Such samples that stand less than this many samples apart are reported together.
  std::int64_t reportGap = 16000;
  std::optional<RawFormat> raw;  ///< of samples without a header; none: the file has one
  /// Asked while a stream has no sound to give; true ends it. None: it is waited for.
  std::function<bool()> stopped;
  /// Receives each warning, one line without end of line; none: standard error.
  std::function<void(const std::string&)> warn;
};

/// An audio file or stream read in one pass, in blocks, as interleaved samples of the selected
/// channels. Whole-number formats are scaled to −1 … 1. Memory does not grow with the file.
class AudioReader {
 public:
  /// Whether a name stands for something that can be read only once: "-", which is standard input,
  /// a FIFO or a device.
  static bool isStream(const std::string& path);

  /// Opens any file libsndfile can read; a stream without going back in it (see SoundStream),
  /// so that read() waits for no more samples than asked for. A file that is
  /// shorter than its header says draws a warning. Throws DataError when the file cannot be opened,
  /// holds no samples, lacks a selected channel, or has another sampling rate than the one wanted
  /// and resample is false or checkConversion refuses.
  explicit AudioReader(const std::string& path, const AudioReaderOptions& options = {});
  ~AudioReader();
  AudioReader(AudioReader&&) noexcept;
  AudioReader& operator=(AudioReader&&) noexcept;

  const std::string& path() const;
  int channelCount() const;  ///< selected channels
  int fileChannels() const;  ///< that the file has
  int samplingRate() const;  ///< of what read() gives, in Hz

  /// Samples per channel that the file announces, at samplingRate(); a file may end before. Nothing
  /// for formats that do not say.
  std::optional<std::int64_t> announcedSamples() const;

  /// The next `count` samples of every channel: channelCount() · count values, channels in turn.
  /// Returns how many it gave; fewer than asked for only at the end. A file that ends before the
  /// length it announces draws a warning. Throws DataError when the file cannot be decoded.
  std::size_t read(float* samples, std::size_t count);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl;
};

/// How many channels a file has, without its warnings, which come with the reading. Throws
/// DataError when it cannot be opened.
int channelsOf(const std::string& path);

}  // namespace Audio
