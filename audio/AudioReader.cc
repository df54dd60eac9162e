#include "audio/AudioReader.h"

#include <fmt/format.h>
#include <sndfile.h>
#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "audio/Channels.h"
#include "audio/SamplingRates.h"
#include "audio/SoundExtent.h"
#include "audio/SoundStream.h"
#include "dsp/AllWithin.h"
#include "dsp/DataError.h"

namespace Audio {

namespace {

constexpr std::size_t BLOCK = 4096;  // samples per channel read from the file at once

// Beyond any sound, and far from where powers of a spectrum leave the range of their numbers: what
// has such samples is a damaged file.
constexpr float MAX_SAMPLE = 1e15F;

struct FileCloser {
  void operator()(SNDFILE* file) const { sf_close(file); }
};
struct ResamplerDeleter {
  void operator()(soxr* resampler) const { soxr_delete(resampler); }
};

std::unique_ptr<soxr, ResamplerDeleter> makeResampler(const std::string& path, int fromRate,
                                                      int toRate, int channels) {
  soxr_error_t error = nullptr;
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
  std::unique_ptr<soxr, ResamplerDeleter> resampler(soxr_create(
      fromRate, toRate, static_cast<unsigned>(channels), &error, nullptr, &quality, nullptr));
  if (error) {
    throw DataError(
        fmt::format("{}: resampling from {} to {} Hz: {}", path, fromRate, toRate, error));
  }
  return resampler;
}

}  // namespace

NonFinite nonFiniteNamed(const std::string& name) {
  if (name == "ZERO") return NonFinite::Zero;
  if (name == "KEEP") return NonFinite::Keep;
  throw DataError(fmt::format("NON_FINITE is \"{}\", expected ZERO or KEEP", name));
}

struct AudioReader::Impl {
  Impl(std::string name, const AudioReaderOptions& given);

  void open();
  std::int64_t readBlock(std::size_t count);
  bool fillBlock(std::size_t wanted);
  std::size_t readFile(float* samples, std::size_t count);
  std::size_t readResampled(float* samples, std::size_t count);
  std::size_t inputFor(std::size_t count) const;
  void checkExtent() const;
  [[noreturn]] void refuseEmpty() const;
  void noteEnd();
  void checkFinite(float* samples, std::size_t count);
  void warn(const std::string& text) const;

  std::string path;
  AudioReaderOptions options;
  bool isStream;
  std::unique_ptr<SoundStream> stream;  // null: a file with a header
  std::unique_ptr<SNDFILE, FileCloser> ownFile;
  SNDFILE* file = nullptr;  // ownFile's, or the stream's
  SF_INFO info{};
  std::optional<std::int64_t> announced;  // samples per channel
  std::vector<int> channels;
  int outputRate = 0;
  std::vector<float> block;    // as the file has it: all channels
  std::size_t blockBegin = 0;  // of it, samples per channel that are not handed out yet
  std::size_t blockEnd = 0;
  bool isLastBlock = false;
  std::vector<int> numbers;     // the same in whole numbers
  std::int64_t position = 0;    // samples per channel handed out
  std::int64_t lastFault = -1;  // the last sample that was not usable
  bool fileEnded = false;

  std::unique_ptr<soxr, ResamplerDeleter> resampler;  // null: the rates agree
  std::vector<float> pending;                         // input for the resampler
  std::size_t pendingBegin = 0;                       // in samples per channel
  std::size_t pendingEnd = 0;
};

AudioReader::Impl::Impl(std::string name, const AudioReaderOptions& given)
    : path(std::move(name)), options(given), isStream(SoundStream::isStream(path)) {
  open();
  try {
    const bool takesAll = options.channelsOfSeveral && info.channels == 1;
    channels =
        selectedChannels(takesAll ? "" : options.channels, info.channels, options.channelsName);
  } catch (const DataError& error) {
    throw DataError(fmt::format("{}: {}", path, error.what()));
  }
  outputRate = options.samplingRate > 0 ? options.samplingRate : info.samplerate;
  if (outputRate != info.samplerate) {
    if (!options.resample) {
      throw DataError(fmt::format("{}: the sampling rate is {} Hz, expected {} Hz ({})", path,
                                  info.samplerate, outputRate, options.resampleWords));
    }
    checkConversion(path, info.samplerate, outputRate);
    resampler = makeResampler(path, info.samplerate, outputRate, static_cast<int>(channels.size()));
    pending.resize(BLOCK * channels.size());
  }
  checkExtent();
  block.resize(BLOCK * static_cast<std::size_t>(info.channels));
}

void AudioReader::Impl::open() {
  if (isStream || options.raw) {
    stream = std::make_unique<SoundStream>(path, options.raw, options.stopped);
    file = stream->file();
    info = stream->info();
    announced = stream->samples();
    return;
  }
  ownFile.reset(sf_open(path.c_str(), SFM_READ, &info));
  if (!ownFile) {
    throw DataError(
        fmt::format("{}: cannot be read as an audio file: {}", path, sf_strerror(nullptr)));
  }
  file = ownFile.get();
  if (info.frames != SF_COUNT_MAX) announced = info.frames;
}

void AudioReader::Impl::checkExtent() const {
  if (announced == 0) refuseEmpty();
  if (stream) return;
  const std::optional<SoundExtent> extent = soundExtentOf(path);
  if (!extent || !extent->isCutOff()) return;
  warn(fmt::format("{}: the file is cut off: it holds {} samples, and its header announces more",
                   path, info.frames));
}

void AudioReader::Impl::refuseEmpty() const {
  const std::optional<SoundExtent> extent = soundExtentOf(path);
  if (extent && extent->announced == 0 && extent->present > 0) {
    throw DataError(fmt::format(
        "{}: the header announces no samples, but {} bytes follow it; expected a file that was "
        "closed by the program that recorded it",
        path, extent->present));
  }
  throw DataError(fmt::format("{}: holds no samples, expected one at least", path));
}

void AudioReader::Impl::warn(const std::string& text) const {
  if (options.warn) {
    options.warn(text);
  } else {
    std::cerr << text << std::endl;
  }
}

/// Samples of all channels to `block`. Returns how many per channel there were.
std::int64_t AudioReader::Impl::readBlock(std::size_t count) {
  const auto frames = static_cast<sf_count_t>(count);
  if (!options.raw || !options.raw->isPadded()) {
    return sf_readf_float(file, block.data(), frames);
  }
  // Whatever the upper byte holds, the sign is that of the lower three.
  numbers.resize(block.size());
  const sf_count_t got = sf_readf_int(file, numbers.data(), frames);
  for (std::size_t i = 0; i < static_cast<std::size_t>(got * info.channels); ++i) {
    const auto upper = static_cast<std::int32_t>(static_cast<std::uint32_t>(numbers[i]) << 8);
    block[i] = static_cast<float>(upper / 2147483648.0);
  }
  return got;
}

/// Fills the empty block with what comes next: of a stream no more than is wanted, since it may be
/// all that there is yet. False at the end.
bool AudioReader::Impl::fillBlock(std::size_t wanted) {
  if (isLastBlock) return false;
  wanted = stream ? std::min(BLOCK, wanted) : BLOCK;
  if (stream && announced) {
    wanted = std::min(wanted, static_cast<std::size_t>(*announced - position));
  }
  blockBegin = 0;
  blockEnd = static_cast<std::size_t>(readBlock(wanted));
  isLastBlock = blockEnd < wanted || wanted == 0;
  return blockEnd > 0;
}

std::size_t AudioReader::Impl::readFile(float* samples, std::size_t count) {
  std::size_t done = 0;
  while (done < count && !fileEnded) {
    if (blockBegin == blockEnd && !fillBlock(count - done)) {
      noteEnd();
      break;
    }
    const std::size_t got = std::min(blockEnd - blockBegin, count - done);
    float* out = samples + done * channels.size();
    const float* in = block.data() + blockBegin * static_cast<std::size_t>(info.channels);
    for (std::size_t n = 0; n < got; ++n, in += info.channels) {
      for (const int channel : channels) *out++ = in[channel];
    }
    checkFinite(samples + done * channels.size(), got);
    blockBegin += got;
    position += static_cast<std::int64_t>(got);
    done += got;
  }
  return done;
}

void AudioReader::Impl::noteEnd() {
  fileEnded = true;
  if (options.stopped && options.stopped()) return;
  if (stream && stream->failedBy() != 0) {
    throw DataError(fmt::format("{}: cannot be read after sample {}: {}", path, position,
                                std::strerror(stream->failedBy())));
  }
  if (sf_error(file) != SF_ERR_NO_ERROR) {
    throw DataError(fmt::format("{}: cannot be decoded after sample {}: {}", path, position,
                                sf_strerror(file)));
  }
  if (position == 0) refuseEmpty();
  if (announced && position < *announced) {
    warn(fmt::format("{}: the file ends after {} of the {} samples it announces", path, position,
                     *announced));
  }
  if (options.raw && stream->surplusBytes() > 0) {
    warn(fmt::format("{}: ends within a sample, whose {} bytes are left out", path,
                     stream->surplusBytes()));
  }
}

void AudioReader::Impl::checkFinite(float* samples, std::size_t count) {
  if (allWithin(samples, count * channels.size(), MAX_SAMPLE)) return;
  for (std::size_t n = 0; n < count; ++n) {
    for (std::size_t c = 0; c < channels.size(); ++c) {
      float& value = samples[n * channels.size() + c];
      if (std::abs(value) <= MAX_SAMPLE) continue;
      const std::int64_t here = position + static_cast<std::int64_t>(n);
      if (lastFault < 0 || here - lastFault >= options.reportGap) {
        warn(fmt::format("{}: samples that are {} from {:.6f} s on (sample {}, channel {}); {}",
                         path, std::isfinite(value) ? "no sound (beyond 1e15)" : "not finite",
                         static_cast<double>(here) / info.samplerate, here, channels[c] + 1,
                         options.nonFinite == NonFinite::Zero ? "replaced by 0" : "passed on"));
      }
      lastFault = here;
      if (options.nonFinite == NonFinite::Zero) value = 0;
    }
  }
}

/// How many samples to give the resampler at once: of a stream no more than it takes.
std::size_t AudioReader::Impl::inputFor(std::size_t count) const {
  if (!isStream) return BLOCK;
  const double ratio = static_cast<double>(info.samplerate) / outputRate;
  return std::clamp<std::size_t>(
      static_cast<std::size_t>(std::ceil(static_cast<double>(count) * ratio)), 1, BLOCK);
}

std::size_t AudioReader::Impl::readResampled(float* samples, std::size_t count) {
  std::size_t done = 0;
  while (done < count) {
    if (pendingBegin == pendingEnd && !fileEnded) {
      pendingBegin = 0;
      pendingEnd = readFile(pending.data(), inputFor(count - done));
    }
    const std::size_t available = pendingEnd - pendingBegin;
    std::size_t used = 0;
    std::size_t given = 0;
    // Without input the resampler gives out what it still holds.
    const float* input = available > 0 ? pending.data() + pendingBegin * channels.size() : nullptr;
    const soxr_error_t error = soxr_process(resampler.get(), input, available, &used,
                                            samples + done * channels.size(), count - done, &given);
    if (error) throw DataError(fmt::format("{}: resampling: {}", path, error));
    pendingBegin += used;
    done += given;
    if (!input && given == 0) break;
  }
  return done;
}

AudioReader::AudioReader(const std::string& path, const AudioReaderOptions& options)
    : impl(std::make_unique<Impl>(path, options)) {}
AudioReader::~AudioReader() = default;
AudioReader::AudioReader(AudioReader&&) noexcept = default;
AudioReader& AudioReader::operator=(AudioReader&&) noexcept = default;

const std::string& AudioReader::path() const { return impl->path; }
bool AudioReader::isStream(const std::string& path) { return SoundStream::isStream(path); }
int AudioReader::channelCount() const { return static_cast<int>(impl->channels.size()); }
int AudioReader::fileChannels() const { return impl->info.channels; }
int AudioReader::samplingRate() const { return impl->outputRate; }

std::optional<std::int64_t> AudioReader::announcedSamples() const {
  if (!impl->resampler || !impl->announced) return impl->announced;
  const double ratio = static_cast<double>(impl->outputRate) / impl->info.samplerate;
  return std::llround(static_cast<double>(*impl->announced) * ratio);
}

std::size_t AudioReader::read(float* samples, std::size_t count) {
  return impl->resampler ? impl->readResampled(samples, count) : impl->readFile(samples, count);
}

int channelsOf(const std::string& path) {
  AudioReaderOptions options;
  options.warn = [](const std::string&) {};
  return AudioReader(path, options).channelCount();
}

}  // namespace Audio
