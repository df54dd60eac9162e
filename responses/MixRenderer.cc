#include "responses/MixRenderer.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/FastConvolution.h"
#include "geometry/Direction.h"
#include "responses/Places.h"

namespace {

constexpr double RAMP = 0.005;   // seconds
constexpr double BLOCK = 0.010;  // seconds

/// Active ranges from time 0 on.
std::vector<Audio::TimeRange> fromZero(std::vector<Audio::TimeRange> ranges) {
  std::erase_if(ranges, [](const auto& range) { return range.end <= 0.0; });
  if (!ranges.empty()) ranges.front().begin = std::max(0.0, ranges.front().begin);
  return ranges;
}

/// A ramp's value x seconds from the side where it is 0: ½ − ½ · cos(πx / RAMP).
double ramp(double x) {
  if (x >= RAMP) return 1.0;
  return x <= 0.0 ? 0.0 : 0.5 - 0.5 * std::cos(std::numbers::pi * x / RAMP);
}

/// The sample at or after a time; limit for times beyond it.
std::size_t sampleAt(double seconds, double rate, std::size_t limit) {
  const double sample = std::ceil(seconds * rate - 1e-6);
  return sample < static_cast<double>(limit) ? static_cast<std::size_t>(sample) : limit;
}

/// Where a source's first dry sample stands, in samples.
std::size_t firstSample(const Audio::SceneSource& source, double rate) {
  const std::vector<Audio::TimeRange> ranges = fromZero(source.active);
  return source.always || ranges.empty() ? 0 : sampleAt(ranges.front().begin, rate, SIZE_MAX);
}

}  // namespace

std::size_t MixRenderer::blockLength() const {
  return std::max<std::size_t>(1, std::lround(BLOCK * responses.samplingRate()));
}

// Dry samples from the first active one on, each times its range's two ramps.
std::vector<double> MixRenderer::emitted(const Audio::SceneSource& source,
                                         const std::vector<float>& dry) const {
  if (source.always) return {dry.begin(), dry.end()};
  const double rate = responses.samplingRate();
  const std::size_t first = firstSample(source, rate);
  std::vector<double> signal(dry.size());
  std::size_t last = first;
  for (const Audio::TimeRange& range : fromZero(source.active)) {
    const std::size_t end = sampleAt(range.end, rate, first + dry.size());
    for (std::size_t n = sampleAt(range.begin, rate, first + dry.size()); n < end; ++n) {
      const double t = static_cast<double>(n) / rate;
      signal[n - first] = ramp(t - range.begin) * ramp(range.end - t) * dry[n - first];
    }
    last = std::max(last, end);
  }
  signal.resize(last - first);
  return signal;
}

// Block b passes from the response nearest at its begin to that nearest at its end. A run of equal
// ones is a passage: it fades in during the block before it and out during its last block.
std::vector<MixRenderer::Passage> MixRenderer::passages(const Audio::SceneSource& source,
                                                        std::size_t begin, std::size_t end) const {
  const auto nearestAt = [&](std::size_t sample) {
    const double t = static_cast<double>(sample) / responses.samplingRate();
    return responses.nearest(source.positionAt(t));
  };
  std::vector<Passage> result = {{nearestAt(begin), begin, end, 0, 0}};
  if (source.track.size() == 1) return result;
  const std::size_t block = blockLength();
  for (std::size_t next = begin + block; next < end; next += block) {
    const std::size_t measurement = nearestAt(next);
    if (measurement == result.back().measurement) continue;
    result.back().end = next;
    result.back().fall = block;
    result.push_back({measurement, next - block, end, block, 0});
  }
  return result;
}

SourceImage MixRenderer::render(const Audio::SceneSource& source,
                                const std::vector<float>& dry) const {
  const std::vector<double> signal = emitted(source, dry);
  const std::size_t first = firstSample(source, responses.samplingRate());
  std::vector<std::vector<double>> channels(responses.microphones());
  for (const Passage& passage : passages(source, first, first + signal.size())) {
    std::vector<double> part(signal.begin() + static_cast<std::ptrdiff_t>(passage.begin - first),
                             signal.begin() + static_cast<std::ptrdiff_t>(passage.end - first));
    for (std::size_t n = 0; n < std::min(passage.rise, part.size()); ++n) {
      part[n] *= static_cast<double>(n) / static_cast<double>(passage.rise);
    }
    for (std::size_t n = 0; n < std::min(passage.fall, part.size()); ++n) {
      part[part.size() - passage.fall + n] *=
          1.0 - static_cast<double>(n) / static_cast<double>(passage.fall);
    }
    for (std::size_t r = 0; r < channels.size(); ++r) {
      const std::vector<double> sound =
          convolution(part, responses.response(passage.measurement, r));
      std::vector<double>& channel = channels[r];
      channel.resize(std::max(channel.size(), passage.begin + sound.size()));
      for (std::size_t n = 0; n < sound.size(); ++n) channel[passage.begin + n] += sound[n];
    }
  }
  SourceImage image{channels.size(), {}};
  std::size_t length = 0;
  for (const auto& channel : channels) length = std::max(length, channel.size());
  image.samples.resize(length * channels.size());
  for (std::size_t r = 0; r < channels.size(); ++r) {
    for (std::size_t n = 0; n < channels[r].size(); ++n) {
      image.samples[n * channels.size() + r] = static_cast<float>(channels[r][n]);
    }
  }
  return image;
}

double MixRenderer::largestDeviation(const Audio::SceneSource& source,
                                     std::size_t drySamples) const {
  const std::size_t begin = firstSample(source, responses.samplingRate());
  const std::size_t end = source.track.size() == 1 ? begin + 1 : begin + drySamples;
  double largest = 0.0;
  for (std::size_t n = begin; n < end; n += blockLength()) {
    const BF::Location point = source.positionAt(static_cast<double>(n) / responses.samplingRate());
    largest =
        std::max(largest, BF::angleBetween(point, responses.position(responses.nearest(point))));
  }
  return largest;
}
