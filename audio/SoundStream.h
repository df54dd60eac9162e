#pragma once

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "audio/RawFormat.h"

namespace Audio {

/// Sound that is read once, from begin to end, without ever going back: a pipe, a FIFO, standard
/// input ("-"), a device. libsndfile reads it through this class, which keeps no more of it than
/// its header, and that only until it is open.
///
/// A header is read forwards up to the sound; jumps of 64 KiB at most are followed by reading on,
/// so what lies behind the sound is never looked for. WAV, W64, AU and AIFF headers whose sizes say
/// "not known" (0, or up to 16 MiB less than 2 GiB or 64 KiB less than 4 GiB, as programs write
/// them to a pipe), mean that the sound lasts to the end of the stream, beyond 4 GiB, too.
///
/// Waiting for sound costs no processor time; it is given up within a fifth of a second once
/// `stopped` says so, which then looks like the end of the stream.
class SoundStream {
 public:
  using Stopped = std::function<bool()>;

  /// Whether a name stands for such a stream: "-", or anything that exists but is neither a regular
  /// file nor a folder.
  static bool isStream(const std::string& path);

  /// Opens a stream with a header, or one of raw samples, which may be a regular file, too. Throws
  /// DataError. A FIFO is waited for until somebody writes.
  SoundStream(const std::string& streamPath, const std::optional<RawFormat>& raw, Stopped stopped);
  SoundStream(const SoundStream&) = delete;
  SoundStream& operator=(const SoundStream&) = delete;
  ~SoundStream();

  /// Of libsndfile, owned by this object.
  SNDFILE* file() const { return sound.get(); }
  const SF_INFO& info() const { return format; }

  /// Samples per channel, where they are known.
  std::optional<std::int64_t> samples() const { return announced; }

  /// Why the stream could not be read on, an errno; 0 without such an error.
  int failedBy() const { return failure; }

  /// Bytes of raw samples behind the last whole one; for the end of the stream.
  std::int64_t surplusBytes() const;

 private:
  struct FileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
  };
  static SF_VIRTUAL_IO callbacks();

  void openWithHeader();
  void openRaw(int libraryFormat);
  bool leavesSizeOpen() const;
  std::int64_t soundBytes() const;

  std::int64_t seek(std::int64_t offset, int whence);
  std::int64_t read(char* bytes, std::int64_t count);
  void keepUpTo(std::int64_t end);
  std::int64_t receive(char* bytes, std::int64_t count);
  bool waitForBytes() const;

  std::string path;
  Stopped isStopped;
  int descriptor = -1;
  bool isOpening = true;
  bool givesWhatIsThere = false;  // for decoders that ask for more than they need
  std::vector<char> head;         // what was read while opening
  std::int64_t origin = 0;        // of the library's positions
  std::int64_t position = 0;      // the library's, from the stream's begin on
  std::int64_t received = 0;      // bytes that came out of the descriptor
  int failure = 0;                // errno of a read that failed
  SF_INFO format{};
  std::optional<std::int64_t> announced;
  std::unique_ptr<SNDFILE, FileCloser> sound;
};

}  // namespace Audio
