#pragma once

#include <cstdint>
#include <string>

namespace Audio {

/// How samples are stored: whole numbers of 16 or 24 bits, or 32-bit floating point.
enum class SampleFormat { Pcm16, Pcm24, Float };

/// "PCM_16", "PCM_24" or "FLOAT". Throws DataError for other names.
SampleFormat sampleFormatNamed(const std::string& name);

int bytesOf(SampleFormat format);  ///< of one sample

/// Brings samples into a format's range, full scale being −1 … 1, and counts what does not fit:
/// values beyond the range of whole numbers are clipped, what is not finite becomes 0.
class Quantizer {
 public:
  explicit Quantizer(SampleFormat format);

  /// For whole-number formats: the stored number, left-aligned in 32 bits.
  int wholeNumber(float value);

  /// For floating point.
  float number(float value);

  std::int64_t clipped() const { return clippedCount; }
  std::int64_t nonFinite() const { return nonFiniteCount; }
  float peak() const { return largest; }  ///< largest modulus before clipping

 private:
  double scale;  // largest stored number + 1
  std::int64_t clippedCount = 0;
  std::int64_t nonFiniteCount = 0;
  float largest = 0;
};

/// By how many dB a peak lies above full scale, rounded up to tenths: lowered by so much it fits.
double decibelsOver(double peak);

}  // namespace Audio
