#include "audio/RawFormat.h"

#include <fmt/format.h>
#include <sndfile.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <vector>

#include "audio/SamplingRates.h"
#include "dsp/DataError.h"

namespace Audio {

namespace {

constexpr int MAX_CHANNELS = 1024;  // libsndfile's

struct Encoding {
  const char* name;
  int libraryFormat;
  bool isPadded = false;
};

constexpr Encoding ENCODINGS[] = {
    {"S8", SF_FORMAT_PCM_S8},
    {"U8", SF_FORMAT_PCM_U8},
    {"S16_LE", SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE},
    {"S16_BE", SF_FORMAT_PCM_16 | SF_ENDIAN_BIG},
    {"S24_LE", SF_FORMAT_PCM_32 | SF_ENDIAN_LITTLE, true},
    {"S24_BE", SF_FORMAT_PCM_32 | SF_ENDIAN_BIG, true},
    {"S24_3LE", SF_FORMAT_PCM_24 | SF_ENDIAN_LITTLE},
    {"S24_3BE", SF_FORMAT_PCM_24 | SF_ENDIAN_BIG},
    {"S32_LE", SF_FORMAT_PCM_32 | SF_ENDIAN_LITTLE},
    {"S32_BE", SF_FORMAT_PCM_32 | SF_ENDIAN_BIG},
    {"FLOAT_LE", SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE},
    {"FLOAT_BE", SF_FORMAT_FLOAT | SF_ENDIAN_BIG},
    {"FLOAT64_LE", SF_FORMAT_DOUBLE | SF_ENDIAN_LITTLE},
    {"FLOAT64_BE", SF_FORMAT_DOUBLE | SF_ENDIAN_BIG},
    {"MU_LAW", SF_FORMAT_ULAW},
    {"A_LAW", SF_FORMAT_ALAW},
};

const Encoding* findEncoding(const std::string& name) {
  const auto* const found = std::find_if(std::begin(ENCODINGS), std::end(ENCODINGS),
                                         [&](const Encoding& e) { return name == e.name; });
  return found == std::end(ENCODINGS) ? nullptr : found;
}

std::vector<std::string> partsOf(const std::string& text) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == ',') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

/// 0 for what is no whole number from 1 on.
int wholeNumber(const std::string& text) {
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && rest == end && number > 0 ? number : 0;
}

}  // namespace

int RawFormat::libraryFormat() const {
  return SF_FORMAT_RAW | findEncoding(encoding)->libraryFormat;
}
bool RawFormat::isPadded() const { return findEncoding(encoding)->isPadded; }

RawFormat parseRawFormat(const std::string& text, const std::string& option) {
  const std::vector<std::string> parts = partsOf(text);
  if (parts.size() != 3) {
    throw DataError(fmt::format(
        "{} is \"{}\", expected ENCODING,CHANNELS,RATE such as S16_LE,8,16000", option, text));
  }
  if (!findEncoding(parts[0])) {
    std::string names;
    for (const Encoding& encoding : ENCODINGS) names += std::string(" ") + encoding.name;
    throw DataError(
        fmt::format("{} has the encoding \"{}\", expected one of{}", option, parts[0], names));
  }
  RawFormat format{parts[0], wholeNumber(parts[1]), wholeNumber(parts[2])};
  if (format.channels < 1 || format.channels > MAX_CHANNELS) {
    throw DataError(
        fmt::format("{} has \"{}\" channels, expected 1 to {}", option, parts[1], MAX_CHANNELS));
  }
  if (format.samplingRate < 1 || format.samplingRate > MAX_SAMPLING_RATE) {
    throw DataError(fmt::format("{} has the sampling rate \"{}\", expected 1 to {} Hz", option,
                                parts[2], MAX_SAMPLING_RATE));
  }
  return format;
}

}  // namespace Audio
