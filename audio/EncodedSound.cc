#include "audio/EncodedSound.h"

#include <fmt/format.h>
#include <sndfile.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "dsp/DataError.h"

namespace {

// The opus encoder of the sound library goes through a whole block on its stack.
constexpr sf_count_t BLOCK = 4096;

/// A file in memory, as the sound library writes one.
struct MemoryFile {
  std::string bytes;
  std::size_t position = 0;

  static sf_count_t length(void* self) {
    return static_cast<sf_count_t>(static_cast<MemoryFile*>(self)->bytes.size());
  }
  static sf_count_t seek(sf_count_t offset, int whence, void* self) {
    auto* file = static_cast<MemoryFile*>(self);
    sf_count_t base = 0;
    if (whence == SEEK_CUR) base = static_cast<sf_count_t>(file->position);
    if (whence == SEEK_END) base = length(self);
    file->position = static_cast<std::size_t>(std::max<sf_count_t>(0, base + offset));
    return static_cast<sf_count_t>(file->position);
  }
  static sf_count_t read(void* target, sf_count_t count, void* self) {
    auto* file = static_cast<MemoryFile*>(self);
    if (file->position >= file->bytes.size()) return 0;
    const std::size_t got =
        std::min(static_cast<std::size_t>(count), file->bytes.size() - file->position);
    std::memcpy(target, file->bytes.data() + file->position, got);
    file->position += got;
    return static_cast<sf_count_t>(got);
  }
  static sf_count_t write(const void* source, sf_count_t count, void* self) {
    auto* file = static_cast<MemoryFile*>(self);
    const std::size_t end = file->position + static_cast<std::size_t>(count);
    if (end > file->bytes.size()) file->bytes.resize(end);
    std::memcpy(file->bytes.data() + file->position, source, static_cast<std::size_t>(count));
    file->position = end;
    return count;
  }
  static sf_count_t tell(void* self) {
    return static_cast<sf_count_t>(static_cast<MemoryFile*>(self)->position);
  }
};

bool isOpusRate(int rate) {
  return rate == 8000 || rate == 12000 || rate == 16000 || rate == 24000 || rate == 48000;
}

}  // namespace

std::string encodedSound(const Signal& signal, SoundCoding coding, const std::string& path) {
  constexpr int OPUS_RATE = 48000;
  if (coding == SoundCoding::Opus && !isOpusRate(signal.samplingRate)) {
    return encodedSound(resampled(signal, OPUS_RATE, path), coding, path);
  }
  SF_INFO info = {};
  info.samplerate = signal.samplingRate;
  info.channels = 1;
  info.format = coding == SoundCoding::Flac ? SF_FORMAT_FLAC | SF_FORMAT_PCM_16
                                            : SF_FORMAT_OGG | SF_FORMAT_OPUS;
  SF_VIRTUAL_IO calls = {MemoryFile::length, MemoryFile::seek, MemoryFile::read, MemoryFile::write,
                         MemoryFile::tell};
  MemoryFile file;
  std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> out(sf_open_virtual(&calls, SFM_WRITE, &info, &file),
                                                  sf_close);
  const auto require = [&](bool success) {
    if (success) return;
    throw DataError(fmt::format("{}: cannot be packed as {}: {}", path,
                                coding == SoundCoding::Flac ? "FLAC" : "Opus",
                                sf_strerror(out.get())));
  };
  require(out != nullptr);
  sf_command(out.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
  const auto count = static_cast<sf_count_t>(signal.samples.size());
  for (sf_count_t n = 0; n < count; n += BLOCK) {
    const sf_count_t size = std::min(BLOCK, count - n);
    require(sf_write_float(out.get(), signal.samples.data() + n, size) == size);
  }
  require(sf_close(out.release()) == 0);
  return std::move(file.bytes);
}
