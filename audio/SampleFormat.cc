#include "audio/SampleFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "dsp/DataError.h"

namespace Audio {

SampleFormat sampleFormatNamed(const std::string& name) {
  if (name == "PCM_16") return SampleFormat::Pcm16;
  if (name == "PCM_24") return SampleFormat::Pcm24;
  if (name == "FLOAT") return SampleFormat::Float;
  throw DataError(fmt::format("FORMAT is \"{}\", expected PCM_16, PCM_24 or FLOAT", name));
}

int bytesOf(SampleFormat format) {
  return format == SampleFormat::Pcm16 ? 2 : format == SampleFormat::Pcm24 ? 3 : 4;
}

Quantizer::Quantizer(SampleFormat format)
    : scale(format == SampleFormat::Pcm16 ? 32768.0 : 8388608.0) {}

float Quantizer::number(float value) {
  if (!std::isfinite(value)) {
    ++nonFiniteCount;
    return 0;
  }
  largest = std::max(largest, std::abs(value));
  return value;
}

int Quantizer::wholeNumber(float value) {
  const double whole = std::nearbyint(static_cast<double>(number(value)) * scale);
  const double limited = std::clamp(whole, -scale, scale - 1.0);
  if (limited != whole) ++clippedCount;
  return static_cast<int>(limited * (2147483648.0 / scale));
}

double decibelsOver(double peak) { return std::ceil(200.0 * std::log10(peak)) / 10.0; }

}  // namespace Audio
