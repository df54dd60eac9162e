#include "separation/NoiseModel.h"

#include <algorithm>
#include <cstddef>

namespace Separation {

NoiseModel::NoiseModel(const Settings& given, int microphones)
    : settings(given.noise),
      layout(given.length, given.advance),
      samplingRate(given.samplingRate),
      echo((given.length - given.outputLength()) / 2 / given.advance),
      quiet(echo),
      mean(microphones, layout.bins(), settings.times.empty() ? settings.forgetting : 1.0),
      result(static_cast<std::size_t>(layout.bins()) *
             static_cast<std::size_t>(microphones * microphones)) {}

bool NoiseModel::isNoiseAlone(std::int64_t frame, std::int64_t total) const {
  if (settings.times.empty()) return quiet > echo;
  const std::int64_t start = layout.start(frame);
  if (start < 0 || start + layout.length() > total) return false;
  const double begin = static_cast<double>(start) / samplingRate;
  const double end = static_cast<double>(start + layout.length()) / samplingRate;
  return std::any_of(settings.times.begin(), settings.times.end(), [begin, end](const auto& time) {
    return time.first <= begin && end <= time.second;
  });
}

void NoiseModel::addFrame(std::int64_t frame, std::int64_t total,
                          const std::complex<float>* spectra, bool hasTargets) {
  quiet = hasTargets ? 0 : quiet + 1;
  if (!settings.matrices.empty() || !isNoiseAlone(frame, total)) return;
  mean.add(spectra);
  isNew = true;
}

bool NoiseModel::write(std::int64_t frame, std::vector<BF::Matrix>& matrices) {
  const int M = mean.microphones();
  if (frame == 0) {
    if (wroteZeros) return false;
    matrices.assign(static_cast<std::size_t>(mean.bins()), BF::Matrix(M, M));
    wroteZeros = true;
    return true;
  }
  if (!isNew) return false;
  if (!settings.matrices.empty()) {
    matrices = settings.matrices;
    isNew = false;
    return true;
  }
  matrices.resize(static_cast<std::size_t>(mean.bins()));
  mean.write(settings.loading, settings.normalize, result.data());
  const std::complex<float>* element = result.data();
  for (BF::Matrix& R : matrices) {
    BF::reshape(R, M, M);
    for (int i = 0; i < M * M; ++i) R.data()[i] = std::complex<double>(*element++);
  }
  isNew = false;
  return true;
}

}  // namespace Separation
