#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Audio {

/// How many bytes of sound a file's header announces, and how many there are from the place on
/// where it says that they begin.
struct SoundExtent {
  std::uint64_t announced = 0;
  std::uint64_t present = 0;

  bool isCutOff() const { return announced > present; }
};

/// Reads the header of a WAV (also RF64, BW64 and big-endian), AIFF or AU file. Nothing for other
/// formats, for what is no regular file and for headers that leave the size open, as programs write
/// them that do not know it beforehand.
std::optional<SoundExtent> soundExtentOf(const std::string& path);

}  // namespace Audio
