#include "audio/SeparatedStream.h"

#include <fmt/format.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "dsp/DataError.h"

namespace Audio {

namespace {

/// The lower `count` bytes of a number, the lowest first.
void appendNumber(std::vector<char>& bytes, std::uint32_t number, int count) {
  for (int i = 0; i < count; ++i) bytes.push_back(static_cast<char>(number >> 8 * i));
}

void appendText(std::vector<char>& bytes, const char* text) {
  bytes.insert(bytes.end(), text, text + std::strlen(text));
}

}  // namespace

SeparatedStream::SeparatedStream(int descriptor, std::string name,
                                 const SeparatedStreamOptions& given)
    : file(descriptor),
      fileName(std::move(name)),
      options(given),
      channels(given.ids.size(), Quantizer(given.format)) {
  if (options.hasHeader) writeHeader();
}

/// A WAV header of unknown length: 0xFFFFFFFF stands for the sizes.
void SeparatedStream::writeHeader() {
  constexpr std::uint32_t UNKNOWN = 0xFFFFFFFF;
  constexpr std::uint32_t WHOLE_NUMBERS = 1;
  constexpr std::uint32_t FLOATING_POINT = 3;
  const auto rate = static_cast<std::uint32_t>(options.samplingRate);
  const auto size = static_cast<std::uint32_t>(bytesOf(options.format));
  const auto frame = size * static_cast<std::uint32_t>(channels.size());
  appendText(bytes, "RIFF");
  appendNumber(bytes, UNKNOWN, 4);
  appendText(bytes, "WAVEfmt ");
  const bool isFloat = options.format == SampleFormat::Float;
  appendNumber(bytes, isFloat ? 18 : 16, 4);
  appendNumber(bytes, isFloat ? FLOATING_POINT : WHOLE_NUMBERS, 2);
  appendNumber(bytes, static_cast<std::uint32_t>(channels.size()), 2);
  appendNumber(bytes, rate, 4);
  appendNumber(bytes, rate * frame, 4);
  appendNumber(bytes, frame, 2);
  appendNumber(bytes, 8 * size, 2);
  if (isFloat) appendNumber(bytes, 0, 2);  // the size of its extension
  appendText(bytes, "data");
  appendNumber(bytes, UNKNOWN, 4);
  send();
}

void SeparatedStream::addFrame(const std::vector<int>& /*ids*/) {}

void SeparatedStream::append(Quantizer& channel, float value) {
  if (options.format == SampleFormat::Float) {
    appendNumber(bytes, std::bit_cast<std::uint32_t>(channel.number(value)), 4);
    return;
  }
  const int size = bytesOf(options.format);
  const auto number = static_cast<std::uint32_t>(channel.wholeNumber(value));
  appendNumber(bytes, number >> (32 - 8 * size), size);
}

void SeparatedStream::write(const Signals& signals, std::size_t count) {
  std::vector<const float*> sounds;
  for (const int id : options.ids) {
    const auto found = signals.find(id);
    sounds.push_back(found == signals.end() ? nullptr : found->second);
  }
  for (std::size_t n = 0; n < count; ++n) {
    for (std::size_t c = 0; c < sounds.size(); ++c) {
      append(channels[c], sounds[c] ? sounds[c][n] : 0.0F);
    }
  }
  position += static_cast<std::int64_t>(count);
  send();
}

void SeparatedStream::send() {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t sent = ::write(file, bytes.data() + done, bytes.size() - done);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0 && errno == EPIPE) throw ConsumerGone();
    if (sent < 0) {
      throw DataError(fmt::format("{}: cannot be written: {}", fileName, std::strerror(errno)));
    }
    done += static_cast<std::size_t>(sent);
  }
  bytes.clear();
}

std::vector<SeparatedSound> SeparatedStream::report() const {
  std::vector<SeparatedSound> sounds;
  for (std::size_t c = 0; c < channels.size(); ++c) {
    SeparatedSound& sound = sounds.emplace_back();
    sound.id = options.ids[c];
    sound.path = fmt::format("channel {} of {}", c + 1, fileName);
    sound.clipped = channels[c].clipped();
    sound.nonFinite = channels[c].nonFinite();
    sound.peak = channels[c].peak();
  }
  return sounds;
}

}  // namespace Audio
