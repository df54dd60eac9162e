#include "cli/MixFiles.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

MixFiles::MixFiles(std::size_t microphoneCount, int samplingRate, bool overwrite)
    : microphones(microphoneCount),
      format{samplingRate, static_cast<int>(microphoneCount), Audio::SampleFormat::Float},
      force(overwrite) {}

void MixFiles::add(const std::string& path, const std::vector<float>& image) {
  mixture.resize(std::max(mixture.size(), image.size()));
  for (std::size_t n = 0; n < image.size(); ++n) mixture[n] += image[n];
  images.emplace_back(path, format, force);
  images.back().write(image.data(), image.size() / microphones);
}

float MixFiles::peak() const {
  float largest = 0.0F;
  for (const float sample : mixture) largest = std::max(largest, std::abs(sample));
  return largest;
}

void MixFiles::finish(const std::string& path) {
  Audio::WavWriter writer(path, format, force);
  writer.write(mixture.data(), length());
  writer.sync();
  for (Audio::WavWriter& image : images) {
    image.writeSilence(static_cast<std::int64_t>(length()) - image.samplesWritten());
    image.sync();
  }
  for (Audio::WavWriter& image : images) image.finish();
  writer.finish();
}
