#include "responses/MixNoise.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "dsp/Decibels.h"
#include "responses/MixRenderer.h"

namespace {

/// Enough directions to sound like all of them.
constexpr std::size_t MAX_PLACES = 48;
/// Of the one-pole low-pass that makes the spectrum fall.
constexpr double SMOOTHING = 0.9;

}  // namespace

std::vector<float> microphoneNoise(std::size_t values, double level, unsigned seed) {
  std::mt19937 generator(seed);
  std::normal_distribution<double> gaussian(0.0, Audio::amplitudeRatio(level));
  std::vector<float> noise(values);
  for (float& value : noise) value = static_cast<float>(gaussian(generator));
  return noise;
}

std::vector<float> diffuseNoise(const Responses& responses, std::size_t length, double level,
                                unsigned seed) {
  const MixRenderer renderer(responses);
  std::mt19937 generator(seed);
  std::normal_distribution<double> gaussian;
  std::vector<double> sum(length * responses.microphones());
  for (const std::size_t place : responses.surround(MAX_PLACES)) {
    std::vector<float> dry(length);
    double smooth = 0.0;
    for (float& sample : dry) {
      smooth = SMOOTHING * smooth + gaussian(generator);
      sample = static_cast<float>(smooth);
    }
    Audio::SceneSource source;
    source.track.emplace_back();
    source.track.front().position = responses.position(place);
    const std::vector<float> image = renderer.render(source, dry).samples;
    for (std::size_t n = 0; n < std::min(sum.size(), image.size()); ++n) sum[n] += image[n];
  }
  double power = 0.0;
  for (const double sample : sum) power += sample * sample;
  if (power == 0.0) return std::vector<float>(sum.size());  // of responses that are all silent
  const double scale =
      Audio::amplitudeRatio(level) / std::sqrt(power / static_cast<double>(sum.size()));
  std::vector<float> noise(sum.size());
  for (std::size_t n = 0; n < sum.size(); ++n) noise[n] = static_cast<float>(scale * sum[n]);
  return noise;
}
