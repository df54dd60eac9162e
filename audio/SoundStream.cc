#include "audio/SoundStream.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "dsp/DataError.h"

namespace Audio {

namespace {

constexpr std::int64_t ENDLESS = std::int64_t{1} << 60;  // bytes that the library is told of
constexpr std::int64_t GIBI = 1 << 30;
constexpr std::int64_t MAX_JUMP = 64 << 10;  // bytes within a header
constexpr std::int64_t MAX_HEAD = 16 << 20;
constexpr int PATIENCE = 200;  // ms between two looks at whether to stop

/// Of one channel; 0 where that is not fixed.
int sampleBytes(int format) {
  switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
      return 1;
    case SF_FORMAT_PCM_16:
      return 2;
    case SF_FORMAT_PCM_24:
      return 3;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT:
      return 4;
    case SF_FORMAT_DOUBLE:
      return 8;
    default:
      return 0;
  }
}

SoundStream::Stopped orNever(SoundStream::Stopped stopped) {
  return stopped ? std::move(stopped) : [] { return false; };
}

}  // namespace

bool SoundStream::isStream(const std::string& path) {
  struct stat status {};
  if (path == "-") return true;
  if (stat(path.c_str(), &status) != 0) return false;
  return !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

SoundStream::SoundStream(const std::string& streamPath, const std::optional<RawFormat>& raw,
                         Stopped stopped)
    : path(streamPath), isStopped(orNever(std::move(stopped))) {
  descriptor = path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                           : ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (descriptor < 0) {
    throw DataError(fmt::format("{}: cannot be opened: {}", path, std::strerror(errno)));
  }
  try {
    if (raw) {
      format.channels = raw->channels;
      format.samplerate = raw->samplingRate;
      openRaw(raw->libraryFormat());
      struct stat status {};
      if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        announced = (status.st_size - lseek(descriptor, 0, SEEK_CUR)) /
                    (raw->channels * sampleBytes(format.format));
      }
    } else {
      openWithHeader();
    }
  } catch (...) {
    close(descriptor);
    throw;
  }
  keepUpTo(position);  // where a header is longer than what was read of it
  isOpening = false;
  givesWhatIsThere = (format.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_FLAC;
}

SoundStream::~SoundStream() {
  sound.reset();
  close(descriptor);
}

void SoundStream::openWithHeader() {
  SF_VIRTUAL_IO io = callbacks();
  sound.reset(sf_open_virtual(&io, SFM_READ, &format, this));
  if (failure != 0) {
    throw DataError(fmt::format("{}: cannot be read: {}", path, std::strerror(failure)));
  }
  if (!sound) {
    throw DataError(
        fmt::format("{}: cannot be read as a stream of sound: {}; expected WAV, W64, AU, AIFF or "
                    "FLAC, or --raw "
                    "(RAW in a node) for samples without a header",
                    path, sf_strerror(nullptr)));
  }
  const int kind = format.format & SF_FORMAT_TYPEMASK;
  if (leavesSizeOpen()) {
    const bool isBigWav =
        std::string_view(head.data(), std::min<std::size_t>(4, head.size())) == "RIFX";
    int order = format.format & SF_FORMAT_ENDMASK;
    if (order == SF_ENDIAN_FILE) {
      order = isBigWav || kind == SF_FORMAT_AU || kind == SF_FORMAT_AIFF ? SF_ENDIAN_BIG
                                                                         : SF_ENDIAN_LITTLE;
    }
    openRaw(SF_FORMAT_RAW | (format.format & SF_FORMAT_SUBMASK) | order);
  } else if (kind == SF_FORMAT_W64 && sampleBytes(format.format) > 0) {
    announced = soundBytes() / (sampleBytes(format.format) * format.channels);
  } else if (format.frames > 0 && format.frames != SF_COUNT_MAX) {
    announced = format.frames;
  }
}

/// Bytes of sound that the header announces.
std::int64_t SoundStream::soundBytes() const {
  // The library takes all that follows the header of a W64 file for sound.
  constexpr std::string_view W64_DATA("data\xF3\xAC\xD3\x11\x8C\xD1\x00\xC0\x4F\x8E\xDB\x8A", 16);
  const std::size_t found = std::string_view(head.data(), head.size()).find(W64_DATA);
  const std::size_t sizeAt = found + W64_DATA.size();
  if ((format.format & SF_FORMAT_TYPEMASK) != SF_FORMAT_W64 || found == std::string_view::npos ||
      sizeAt + 8 > head.size()) {
    return std::min(format.frames, ENDLESS) * sampleBytes(format.format) * format.channels;
  }
  std::int64_t size = 0;
  std::memcpy(&size, head.data() + sizeAt, sizeof size);
  return std::max<std::int64_t>(0, size - 24);  // which counts the chunk's own head
}

bool SoundStream::leavesSizeOpen() const {
  const int kind = format.format & SF_FORMAT_TYPEMASK;
  if (kind == SF_FORMAT_FLAC || sampleBytes(format.format) == 0) return false;
  const std::int64_t bytes = soundBytes();
  const bool isAboutTwo = bytes >= 2 * GIBI - (16 << 20) && bytes <= 2 * GIBI;
  const bool isAboutFour = bytes > 4 * GIBI - (64 << 10) && bytes <= 4 * GIBI;
  return bytes == 0 || isAboutTwo || isAboutFour || bytes > ENDLESS / 2;
}

/// The stream from here on as samples of the channels and the rate that are known.
void SoundStream::openRaw(int libraryFormat) {
  origin = position;
  format.format = libraryFormat;
  format.frames = 0;
  SF_VIRTUAL_IO io = callbacks();
  sound.reset(sf_open_virtual(&io, SFM_READ, &format, this));
  if (!sound) {
    throw DataError(
        fmt::format("{}: cannot be read as raw samples: {}", path, sf_strerror(nullptr)));
  }
}

std::int64_t SoundStream::surplusBytes() const {
  if ((format.format & SF_FORMAT_TYPEMASK) != SF_FORMAT_RAW) return 0;
  return (received - origin) % (sampleBytes(format.format) * format.channels);
}

SF_VIRTUAL_IO SoundStream::callbacks() {
  static constexpr auto stream = [](void* s) -> SoundStream& {
    return *static_cast<SoundStream*>(s);
  };
  SF_VIRTUAL_IO io{};
  io.get_filelen = [](void*) -> sf_count_t { return ENDLESS; };
  io.seek = [](sf_count_t offset, int whence, void* s) -> sf_count_t {
    return stream(s).seek(offset, whence);
  };
  io.read = [](void* bytes, sf_count_t count, void* s) -> sf_count_t {
    return stream(s).read(static_cast<char*>(bytes), count);
  };
  io.write = [](const void*, sf_count_t, void*) -> sf_count_t { return 0; };
  io.tell = [](void* s) -> sf_count_t { return stream(s).seek(0, SEEK_CUR); };
  return io;
}

std::int64_t SoundStream::seek(std::int64_t offset, int whence) {
  const std::int64_t from = whence == SEEK_SET   ? origin
                            : whence == SEEK_CUR ? position
                                                 : origin + ENDLESS;
  // An unknown size that the library adds as a number goes beyond all of them.
  position = from + offset < origin ? origin + ENDLESS : from + offset;
  return position - origin;
}

/// The bytes from the library's position on: those that were kept, then new ones.
std::int64_t SoundStream::read(char* bytes, std::int64_t count) {
  if (isOpening) keepUpTo(position + count);
  const auto kept = static_cast<std::int64_t>(head.size());
  const std::int64_t old = std::clamp<std::int64_t>(kept - position, 0, count);
  if (old > 0) std::memcpy(bytes, head.data() + position, static_cast<std::size_t>(old));
  position += old;
  if (isOpening || position < received) return old;
  if (!head.empty()) std::vector<char>().swap(head);
  // Nothing jumps forward in the sound itself.
  const std::int64_t fresh = position == received ? receive(bytes + old, count - old) : 0;
  position += fresh;
  return old + fresh;
}

/// Reads on while the header is being read, so that `head` has all bytes before `end`.
void SoundStream::keepUpTo(std::int64_t end) {
  if (end <= received || position > received + MAX_JUMP || end > MAX_HEAD) return;
  const std::int64_t missing = end - received;
  head.resize(static_cast<std::size_t>(end));
  receive(head.data() + (end - missing), missing);
  head.resize(static_cast<std::size_t>(received));
}

/// Bytes from the descriptor: as many as asked for, unless the stream ends.
std::int64_t SoundStream::receive(char* bytes, std::int64_t count) {
  std::int64_t done = 0;
  while (done < count && failure == 0 && waitForBytes()) {
    const ssize_t got = ::read(descriptor, bytes + done, static_cast<std::size_t>(count - done));
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (got < 0) failure = errno;
    if (got <= 0) break;
    done += got;
    received += got;
    if (givesWhatIsThere) break;
  }
  return done;
}

/// False when the wait was given up.
bool SoundStream::waitForBytes() const {
  pollfd waiting{descriptor, POLLIN, 0};
  while (!isStopped()) {
    if (poll(&waiting, 1, PATIENCE) > 0) return true;
  }
  return false;
}

}  // namespace Audio
