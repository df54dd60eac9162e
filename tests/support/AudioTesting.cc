#include "tests/support/AudioTesting.h"

#include <sndfile.h>

#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>

Sound readSound(const std::string& path) {
  SF_INFO info{};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (!file) throw std::runtime_error(path + ": " + sf_strerror(nullptr));
  Sound sound{info.samplerate, info.channels, info.format, {}};
  sound.samples.resize(static_cast<std::size_t>(info.frames * info.channels));
  const sf_count_t got = sf_readf_float(file, sound.samples.data(), info.frames);
  sf_close(file);
  if (got != info.frames) throw std::runtime_error(path + ": cut off");
  return sound;
}

void writeSound(const std::string& path, int samplingRate, int channels,
                const std::vector<float>& samples, int format) {
  SF_INFO info{};
  info.samplerate = samplingRate;
  info.channels = channels;
  info.format = format != 0 ? format : SF_FORMAT_WAV | SF_FORMAT_FLOAT;
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  if (!file) throw std::runtime_error(path + ": " + sf_strerror(nullptr));
  sf_write_float(file, samples.data(), static_cast<sf_count_t>(samples.size()));
  sf_close(file);
}

std::vector<float> noise(std::size_t count, unsigned seed, float amplitude) {
  std::mt19937 generator(seed);
  std::uniform_real_distribution<float> distribution(-amplitude, amplitude);
  std::vector<float> samples(count);
  for (float& sample : samples) sample = distribution(generator);
  return samples;
}

double differenceInDb(const std::vector<float>& actual, const std::vector<float>& expected) {
  if (actual.size() != expected.size()) {
    ADD_FAILURE() << actual.size() << " samples, expected " << expected.size();
    return std::numeric_limits<double>::infinity();
  }
  double difference = 0;
  double energy = 0;
  for (std::size_t n = 0; n < actual.size(); ++n) {
    if (!std::isfinite(actual[n])) {
      ADD_FAILURE() << "sample " << n << " is not finite";
      return std::numeric_limits<double>::infinity();
    }
    const double d = static_cast<double>(actual[n]) - static_cast<double>(expected[n]);
    difference += d * d;
    energy += static_cast<double>(expected[n]) * static_cast<double>(expected[n]);
  }
  return 10 * std::log10(difference / energy);
}
