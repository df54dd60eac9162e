#pragma once

#include <string>

namespace Audio {

/// How samples without a header are stored: channels in turn, each sample as one of
///   S8 U8 S16_LE S16_BE S24_LE S24_BE S24_3LE S24_3BE S32_LE S32_BE FLOAT_LE FLOAT_BE
///   FLOAT64_LE FLOAT64_BE MU_LAW A_LAW
/// (the names of ALSA's tools): S24_LE has its 24 bits in four bytes, S24_3LE in three.
struct RawFormat {
  std::string encoding = "S16_LE";
  int channels = 1;
  int samplingRate = 16000;  ///< Hz

  int libraryFormat() const;  ///< libsndfile's
  /// Whether a sample's 24 bits are the lower ones of four bytes, which libsndfile does not know:
  /// libraryFormat() is that of four whole bytes then.
  bool isPadded() const;
};

/// The format of a text such as "S16_LE,8,16000": encoding, channels (1 to 1024), sampling rate.
/// Throws DataError that begins with `option`, which is what messages call the text.
RawFormat parseRawFormat(const std::string& text, const std::string& option);

}  // namespace Audio
