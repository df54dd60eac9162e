#include "audio/SignalFile.h"

#include <fmt/format.h>
#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iostream>

#include "audio/AudioReader.h"
#include "audio/FileText.h"
#include "audio/SamplingRates.h"
#include "dsp/DataError.h"

namespace {

constexpr std::size_t BLOCK = 16384;

/// Throws unless there are samples and all of them are finite.
void checkSamples(const std::string& path, const std::vector<float>& samples) {
  if (samples.empty()) {
    throw DataError(fmt::format("{}: holds no samples, expected one at least", path));
  }
  const auto fault = std::find_if(samples.begin(), samples.end(),
                                  [](float sample) { return !std::isfinite(sample); });
  if (fault != samples.end()) {
    throw DataError(fmt::format("{}: sample {} is {}, expected a finite number", path,
                                fault - samples.begin(), *fault));
  }
}

}  // namespace

Signal restOf(Audio::AudioReader& reader) {
  Signal signal;
  signal.samplingRate = reader.samplingRate();
  std::size_t got = BLOCK;
  while (got == BLOCK) {
    const std::size_t begin = signal.samples.size();
    signal.samples.resize(begin + BLOCK);
    got = reader.read(signal.samples.data() + begin, BLOCK);
    signal.samples.resize(begin + got);
  }
  return signal;
}

Signal readSignal(const std::string& path, int channel) {
  Audio::AudioReaderOptions options;
  options.nonFinite = Audio::NonFinite::Keep;
  options.channelsName = "--channel";
  std::vector<std::string> warnings;
  options.warn = [&](const std::string& text) { warnings.push_back(text); };
  options.channels = std::to_string(channel);
  options.channelsOfSeveral = true;
  Audio::AudioReader reader(path, options);
  Signal signal = restOf(reader);
  // An error says all that is wrong; the warnings are for files that can be used.
  checkSamples(path, signal.samples);
  for (const std::string& text : warnings) std::cerr << "zelk-sss: " << text << std::endl;
  return signal;
}

Signal readRawSignal(const std::string& path, int samplingRate) {
  const std::string bytes = Audio::fileText(path);
  if (bytes.starts_with("RIFF")) {
    throw DataError(fmt::format(
        "{}: begins as a WAV file does (RIFF), expected headerless samples (--raw-rate is given)",
        path));
  }
  if (bytes.size() % 2 != 0) {
    throw DataError(
        fmt::format("{}: has {} bytes, expected two for each sample", path, bytes.size()));
  }
  Signal signal;
  signal.samplingRate = samplingRate;
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    const int low = static_cast<unsigned char>(bytes[i]);
    const int high = static_cast<unsigned char>(bytes[i + 1]);
    signal.samples.push_back(static_cast<float>(static_cast<std::int16_t>(low | high << 8)) /
                             32768.0f);
  }
  checkSamples(path, signal.samples);
  return signal;
}

Signal resampled(const Signal& signal, int samplingRate, const std::string& path) {
  Audio::checkConversion(path, signal.samplingRate, samplingRate);
  const double ratio = static_cast<double>(samplingRate) / signal.samplingRate;
  Signal result;
  result.samplingRate = samplingRate;
  result.samples.resize(
      static_cast<std::size_t>(std::ceil(static_cast<double>(signal.samples.size()) * ratio)));
  std::size_t got = 0;
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
  const soxr_error_t error = soxr_oneshot(
      signal.samplingRate, samplingRate, 1, signal.samples.data(), signal.samples.size(), nullptr,
      result.samples.data(), result.samples.size(), &got, nullptr, &quality, nullptr);
  if (error) {
    throw DataError(fmt::format("{}: resampling from {} to {} Hz: {}", path, signal.samplingRate,
                                samplingRate, error));
  }
  result.samples.resize(got);
  return result;
}
