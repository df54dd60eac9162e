#include "responses/ResponseSet.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "dsp/DataError.h"
#include "responses/InverseTransform.h"

namespace {

constexpr double MAX_DELAY = 10.0;  // seconds

// Half the length of the interpolator for delays between samples.
constexpr int SINC_REACH = 32;

/// h'(n) = Σ_k h(k) · w(n − k − delay) · sinc(n − k − delay), with a Hann window w.
std::vector<double> delayed(const float* h, std::size_t length, double delay) {
  const int whole = static_cast<int>(std::floor(delay));
  const double part = delay - whole;
  std::vector<double> result(length + static_cast<std::size_t>(whole + SINC_REACH));
  if (part == 0.0) {
    result.resize(length + static_cast<std::size_t>(whole));
    std::copy(h, h + length, result.begin() + whole);
    return result;
  }
  for (int tap = 1 - SINC_REACH; tap < SINC_REACH; ++tap) {
    const double x = tap - part;
    const double window = 0.5 + 0.5 * std::cos(std::numbers::pi * x / SINC_REACH);
    const double value = window * std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
    for (std::size_t k = 0; k < length; ++k) {
      const int n = static_cast<int>(k) + whole + tap;
      if (n >= 0) result[static_cast<std::size_t>(n)] += value * static_cast<double>(h[k]);
    }
  }
  return result;
}

}  // namespace

ResponseSet::ResponseSet(const std::string& path, const Reverberation& roomTail)
    : ResponseSet(SofaFile(path), roomTail) {}

ResponseSet::ResponseSet(const SofaFile& file, const Reverberation& roomTail)
    : name(file.path()),
      places(file.sourcePositions()),
      array(file.receiverPositions()),
      reference(file.referenceMicrophone()),
      tail(roomTail) {
  setRate(file.samplingRate());
  if (file.isTransferFunctions()) {
    takeTransferFunctions(file.readTransferFunctions(), file.length());
  } else {
    takeImpulseResponses(file);
  }
}

ResponseSet::ResponseSet(const SofaTransferFunctions& data, std::string dataName,
                         const Reverberation& roomTail)
    : name(std::move(dataName)),
      places(data.sourcePositions),
      array(data.receiverPositions),
      reference(data.referenceMicrophone),
      tail(roomTail) {
  setRate(data.samplingRate);
  takeTransferFunctions(data.values, data.frequencies);
}

void ResponseSet::setRate(double given) {
  rate = static_cast<int>(std::lround(given));
  if (rate < 1 || std::abs(given - rate) > 1e-3) {
    throw DataError(
        fmt::format("{}: the sampling rate is {} Hz, expected a whole number", name, given));
  }
}

void ResponseSet::takeTransferFunctions(const std::vector<std::complex<float>>& H, std::size_t N) {
  InverseTransforms inverse = inverseTransforms(name, H, N, reference);
  samples = inverse.length;
  lead = inverse.lead;
  impulseResponses = std::move(inverse.values);
  delays.assign(measurements() * microphones(), 0.0);
}

void ResponseSet::takeImpulseResponses(const SofaFile& file) {
  samples = file.length();
  impulseResponses = file.readImpulseResponses();
  delays = file.readDelays();
  for (const double delay : delays) {
    if (delay < 0.0 || delay > MAX_DELAY * rate) {
      throw DataError(fmt::format("{}: Data.Delay holds {}, expected 0 to {} samples ({} s)", name,
                                  delay, MAX_DELAY * rate, MAX_DELAY));
    }
  }
}

std::size_t ResponseSet::nearest(const BF::Location& point) const { return places.nearest(point); }

BF::Location ResponseSet::position(std::size_t measurement) const {
  return places.place(measurement);
}

std::vector<std::size_t> ResponseSet::surround(std::size_t count) const {
  std::vector<std::size_t> chosen(std::min(count, measurements()));
  for (std::size_t i = 0; i < chosen.size(); ++i) chosen[i] = i * measurements() / chosen.size();
  return chosen;
}

std::vector<double> ResponseSet::response(std::size_t measurement, std::size_t r) const {
  const std::size_t i = measurement * microphones() + r;
  return tail.added(delayed(impulseResponses.data() + i * samples, samples, delays[i]), rate, i);
}
