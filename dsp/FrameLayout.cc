#include "dsp/FrameLayout.h"

#include <fmt/format.h>

#include <algorithm>

#include "dsp/DataError.h"

namespace Audio {

namespace {

constexpr int MAX_FRAME = 1 << 24;

}  // namespace

FrameLayout::FrameLayout(int lengthValue, int advanceValue)
    : samplesPerFrame(lengthValue), samplesPerStep(advanceValue) {
  if (lengthValue < 1 || lengthValue > MAX_FRAME) {
    throw DataError(fmt::format("LENGTH is {}, expected 1 to {} samples", lengthValue, MAX_FRAME));
  }
  if (advanceValue < 1 || advanceValue > lengthValue) {
    throw DataError(
        fmt::format("ADVANCE is {}, expected 1 to LENGTH = {} samples", advanceValue, lengthValue));
  }
}

double FrameLayout::time(std::int64_t frame, int samplingRate) const {
  const double centre = static_cast<double>(start(frame)) + samplesPerFrame / 2.0;
  return std::max(0.0, centre) / samplingRate;
}

std::int64_t FrameLayout::frameCount(std::int64_t samples) const {
  if (samples <= 0) return 0;
  return (samples + samplesPerFrame - 1) / samplesPerStep;
}

}  // namespace Audio
