#include "audio/WavWriter.h"

#include <fmt/format.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "audio/OutputFile.h"
#include "dsp/DataError.h"

namespace Audio {

namespace {

struct FileCloser {
  void operator()(SNDFILE* file) const { sf_close(file); }
};

constexpr std::size_t SILENCE_BLOCK = 4096;

/// Values, at least, that the file is given together: each time is a call of the system.
constexpr std::size_t AT_ONCE = 16384;

// The format's counts have 32 bits; the rest is for the header.
constexpr std::int64_t MAX_FILE_SIZE = 0xFFFFFFFF - 4096;

int libraryFormatOf(SampleFormat format) {
  return format == SampleFormat::Pcm16   ? SF_FORMAT_PCM_16
         : format == SampleFormat::Pcm24 ? SF_FORMAT_PCM_24
                                         : SF_FORMAT_FLOAT;
}

}  // namespace

struct WavWriter::Impl {
  Impl(std::string name, const WavFormat& wavFormat, bool overwrite);

  void open(int mode);
  void resume();
  void writeValues(const float* values, std::size_t count);
  void flush();
  void close();
  [[noreturn]] void fail(const std::string& reason) const;

  OutputFile output;
  WavFormat format;
  Quantizer quantizer;
  std::unique_ptr<SNDFILE, FileCloser> file;  // null: suspended or finished
  bool finished = false;
  std::vector<int> wholeNumbers;  // that were not given to the file yet
  std::vector<float> numbers;     // likewise
  std::int64_t written = 0;
};

WavWriter::Impl::Impl(std::string name, const WavFormat& wavFormat, bool overwrite)
    : output(std::move(name), overwrite), format(wavFormat), quantizer(wavFormat.samples) {
  if (format.samples == SampleFormat::Float) {
    numbers.reserve(AT_ONCE);
  } else {
    wholeNumbers.reserve(AT_ONCE);
  }
  open(SFM_WRITE);
}

void WavWriter::Impl::fail(const std::string& reason) const {
  throw DataError(fmt::format("{}: cannot be written: {}", output.path(), reason));
}

void WavWriter::Impl::open(int mode) {
  SF_INFO info{};
  info.samplerate = format.samplingRate;
  info.channels = format.channels;
  info.format = SF_FORMAT_WAV | libraryFormatOf(format.samples);
  file.reset(sf_open_fd(output.descriptor(), mode, &info, SF_FALSE));
  if (!file) fail(sf_strerror(nullptr));
}

void WavWriter::Impl::resume() {
  output.resume();
  open(SFM_RDWR);
  if (sf_seek(file.get(), 0, SEEK_END | SFM_WRITE) != written) {
    fail(fmt::format("the file was changed, expected {} samples in it", written));
  }
}

void WavWriter::Impl::writeValues(const float* values, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (format.samples == SampleFormat::Float) {
      numbers.push_back(quantizer.number(values[i]));
    } else {
      // The library takes whole numbers left-aligned in 32 bits.
      wholeNumbers.push_back(quantizer.wholeNumber(values[i]));
    }
  }
  if (numbers.size() + wholeNumbers.size() >= AT_ONCE) flush();  // whole samples of all channels
}

/// Gives the file what was gathered.
void WavWriter::Impl::flush() {
  const auto count = static_cast<sf_count_t>(numbers.size() + wholeNumbers.size());
  const sf_count_t accepted = format.samples == SampleFormat::Float
                                  ? sf_write_float(file.get(), numbers.data(), count)
                                  : sf_write_int(file.get(), wholeNumbers.data(), count);
  numbers.clear();
  wholeNumbers.clear();
  if (accepted != count) fail(sf_strerror(file.get()));
}

void WavWriter::Impl::close() {
  if (!file) return;
  flush();
  const int error = sf_close(file.release());
  if (error != SF_ERR_NO_ERROR) {
    throw DataError(fmt::format("{}: cannot be closed: {}", output.path(), sf_error_number(error)));
  }
}

WavWriter::WavWriter(const std::string& path, const WavFormat& wavFormat, bool overwrite)
    : impl(std::make_unique<Impl>(path, wavFormat, overwrite)) {}
WavWriter::~WavWriter() = default;
WavWriter::WavWriter(WavWriter&&) noexcept = default;
WavWriter& WavWriter::operator=(WavWriter&&) noexcept = default;

void WavWriter::write(const float* samples, std::size_t count) {
  if (impl->finished) throw DataError(fmt::format("{}: is finished already", impl->output.path()));
  const std::int64_t size = (impl->written + static_cast<std::int64_t>(count)) *
                            impl->format.channels * bytesOf(impl->format.samples);
  if (size > MAX_FILE_SIZE) {
    throw DataError(fmt::format("{}: the recording is too long for a WAV file, which holds 4 GB",
                                impl->output.path()));
  }
  if (!impl->file) impl->resume();
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
  impl->close();
  impl->output.suspend();
}

void WavWriter::sync() {
  impl->close();
  impl->output.sync();
}

void WavWriter::finish() {
  if (impl->finished) return;
  impl->close();
  impl->finished = true;
  impl->output.finish();
}

std::int64_t WavWriter::samplesWritten() const { return impl->written; }
std::int64_t WavWriter::clippedSamples() const { return impl->quantizer.clipped(); }
std::int64_t WavWriter::nonFiniteSamples() const { return impl->quantizer.nonFinite(); }
float WavWriter::peak() const { return impl->quantizer.peak(); }

}  // namespace Audio
