#include "audio/WavWriter.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "audio/TemporaryFile.h"
#include "dsp/AudioError.h"

namespace Audio {

namespace {

struct FileCloser {
  void operator()(SNDFILE* file) const { sf_close(file); }
};

constexpr std::size_t SILENCE_BLOCK = 4096;

// The format's counts have 32 bits; the rest is for the header.
constexpr std::int64_t LARGEST_FILE = 0xFFFFFFFF - 4096;

int libraryFormat(SampleFormat format) {
  switch (format) {
    case SampleFormat::Pcm16:
      return SF_FORMAT_PCM_16;
    case SampleFormat::Pcm24:
      return SF_FORMAT_PCM_24;
    case SampleFormat::Float:
      break;
  }
  return SF_FORMAT_FLOAT;
}

std::int64_t bytesPerValue(SampleFormat format) {
  switch (format) {
    case SampleFormat::Pcm16:
      return 2;
    case SampleFormat::Pcm24:
      return 3;
    case SampleFormat::Float:
      break;
  }
  return 4;
}

/// Largest stored number + 1; 0 for floating point.
double fullScale(SampleFormat format) {
  switch (format) {
    case SampleFormat::Pcm16:
      return 32768.0;
    case SampleFormat::Pcm24:
      return 8388608.0;
    case SampleFormat::Float:
      break;
  }
  return 0.0;
}

/// Waits until a file's content is on the disk; only then may a full one show. Sets errno.
bool isOnDisk(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return false;
  const int status = fsync(descriptor);
  const int reason = errno;
  close(descriptor);
  errno = reason;
  return status == 0;
}

}  // namespace

SampleFormat sampleFormatNamed(const std::string& name) {
  if (name == "PCM_16") return SampleFormat::Pcm16;
  if (name == "PCM_24") return SampleFormat::Pcm24;
  if (name == "FLOAT") return SampleFormat::Float;
  throw AudioError(fmt::format("FORMAT is \"{}\", expected PCM_16, PCM_24 or FLOAT", name));
}

struct WavWriter::Impl {
  Impl(std::string name, const WavFormat& wavFormat, bool overwrite);

  void open(int mode);
  void reopen();
  void writeValues(const float* values, std::size_t count);
  float cleaned(float value);
  int quantized(float value);
  void close();
  [[noreturn]] void fail(const std::string& reason) const;

  std::string path;
  TemporaryFile part;
  WavFormat format;
  double scale;
  std::unique_ptr<SNDFILE, FileCloser> file;  // null: suspended or finished
  bool finished = false;
  std::vector<int> wholeNumbers;
  std::vector<float> numbers;
  std::int64_t written = 0;
  std::int64_t clipped = 0;
  std::int64_t nonFinite = 0;
  float peak = 0;
};

WavWriter::Impl::Impl(std::string name, const WavFormat& wavFormat, bool overwrite)
    : path(std::move(name)),
      part(path + ".part", path),
      format(wavFormat),
      scale(fullScale(wavFormat.samples)) {
  std::error_code ignored;  // what is wrong with the name shows when the file is made
  if (!overwrite && std::filesystem::exists(path, ignored)) {
    throw AudioError(fmt::format("{}: exists already (set OVERWRITE to true to replace it)", path));
  }
  open(SFM_WRITE);
}

void WavWriter::Impl::fail(const std::string& reason) const {
  throw AudioError(fmt::format("{}: cannot be written: {}", part.path(), reason));
}

void WavWriter::Impl::open(int mode) {
  SF_INFO info{};
  info.samplerate = format.samplingRate;
  info.channels = format.channels;
  info.format = SF_FORMAT_WAV | libraryFormat(format.samples);
  file.reset(sf_open(part.path().c_str(), mode, &info));
  if (!file) fail(sf_strerror(nullptr));
}

void WavWriter::Impl::reopen() {
  // Opening to read and write makes a file that is not there.
  std::error_code error;
  if (!std::filesystem::exists(part.path(), error)) {
    fail(error ? error.message() : "the file was removed");
  }
  open(SFM_RDWR);
  if (sf_seek(file.get(), 0, SEEK_END | SFM_WRITE) != written) {
    fail(fmt::format("the file was changed, expected {} samples in it", written));
  }
}

float WavWriter::Impl::cleaned(float value) {
  if (!std::isfinite(value)) {
    ++nonFinite;
    return 0;
  }
  peak = std::max(peak, std::abs(value));
  return value;
}

// The library takes whole numbers left-aligned in 32 bits.
int WavWriter::Impl::quantized(float value) {
  const double number = std::nearbyint(static_cast<double>(value) * scale);
  const double limited = std::clamp(number, -scale, scale - 1.0);
  if (limited != number) ++clipped;
  return static_cast<int>(limited * (2147483648.0 / scale));
}

void WavWriter::Impl::writeValues(const float* values, std::size_t count) {
  sf_count_t accepted = 0;
  if (format.samples == SampleFormat::Float) {
    numbers.resize(count);
    for (std::size_t i = 0; i < count; ++i) numbers[i] = cleaned(values[i]);
    accepted = sf_write_float(file.get(), numbers.data(), static_cast<sf_count_t>(count));
  } else {
    wholeNumbers.resize(count);
    for (std::size_t i = 0; i < count; ++i) wholeNumbers[i] = quantized(cleaned(values[i]));
    accepted = sf_write_int(file.get(), wholeNumbers.data(), static_cast<sf_count_t>(count));
  }
  if (accepted != static_cast<sf_count_t>(count)) fail(sf_strerror(file.get()));
}

void WavWriter::Impl::close() {
  const int error = sf_close(file.release());
  if (error != SF_ERR_NO_ERROR) {
    throw AudioError(fmt::format("{}: cannot be closed: {}", part.path(), sf_error_number(error)));
  }
}

WavWriter::WavWriter(const std::string& path, const WavFormat& wavFormat, bool overwrite)
    : impl(std::make_unique<Impl>(path, wavFormat, overwrite)) {}
WavWriter::~WavWriter() = default;
WavWriter::WavWriter(WavWriter&&) noexcept = default;
WavWriter& WavWriter::operator=(WavWriter&&) noexcept = default;

void WavWriter::write(const float* samples, std::size_t count) {
  if (impl->finished) throw AudioError(fmt::format("{}: is finished already", impl->path));
  const std::int64_t size = (impl->written + static_cast<std::int64_t>(count)) *
                            impl->format.channels * bytesPerValue(impl->format.samples);
  if (size > LARGEST_FILE) {
    throw AudioError(
        fmt::format("{}: the recording is too long for a WAV file, which holds 4 GB", impl->path));
  }
  if (!impl->file) impl->reopen();
  impl->writeValues(samples, count * static_cast<std::size_t>(impl->format.channels));
  impl->written += static_cast<std::int64_t>(count);
}

void WavWriter::writeSilence(std::int64_t count) {
  const std::vector<float> zeros(SILENCE_BLOCK * static_cast<std::size_t>(impl->format.channels));
  while (count > 0) {
    const auto step = std::min<std::int64_t>(count, SILENCE_BLOCK);
    write(zeros.data(), static_cast<std::size_t>(step));
    count -= step;
  }
}

void WavWriter::suspend() {
  if (impl->file) impl->close();
}

void WavWriter::finish() {
  if (impl->finished) return;
  suspend();
  impl->finished = true;
  if (!isOnDisk(impl->part.path())) impl->fail(std::strerror(errno));
  if (const std::error_code error = impl->part.rename()) {
    throw AudioError(
        fmt::format("{}: cannot be named {}: {}", impl->part.path(), impl->path, error.message()));
  }
}

std::int64_t WavWriter::samplesWritten() const { return impl->written; }
std::int64_t WavWriter::clippedSamples() const { return impl->clipped; }
std::int64_t WavWriter::nonFiniteSamples() const { return impl->nonFinite; }
float WavWriter::peak() const { return impl->peak; }

}  // namespace Audio
