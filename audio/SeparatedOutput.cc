#include "audio/SeparatedOutput.h"

#include <fmt/format.h>

#include "audio/SampleFormat.h"

namespace Audio {

std::vector<std::string> SeparatedOutput::remarks(const std::string& floatWords) const {
  std::vector<std::string> warnings;
  for (const SeparatedSound& sound : report()) {
    if (sound.clipped > 0) {
      warnings.push_back(fmt::format(
          "{}: {} samples were clipped; the largest was {:.4g} times full scale: a recording "
          "softer by {:.1f} dB would fit, and {} keeps them",
          sound.path, sound.clipped, sound.peak, decibelsOver(sound.peak), floatWords));
    }
    if (sound.nonFinite > 0) {
      warnings.push_back(fmt::format("{}: {} samples were not finite and written as 0", sound.path,
                                     sound.nonFinite));
    }
  }
  return warnings;
}

}  // namespace Audio
