#include "separation/mvdr/Mvdr.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "geometry/SpeedOfSound.h"

namespace Separation {

namespace {

bool samePlace(const ::BF::SourceLocation& a, const ::BF::SourceLocation& b) {
  return a.x == b.x && a.y == b.y && a.z == b.z;
}

}  // namespace

Mvdr::Mvdr(SpatialCovariance spatialCovariance, int samplingRateHz, int referenceMicrophone,
           double loading)
    : BF(static_cast<int>(spatialCovariance.bins()), samplingRateHz, ::BF::SPEED_OF_SOUND),
      covariance(std::move(spatialCovariance)),
      weights(1, {static_cast<int>(covariance.microphones()), covariance.stack().frames,
                  referenceMicrophone, loading}) {
  numMic = static_cast<int>(covariance.microphones());
  earlier.assign(static_cast<std::size_t>(covariance.stack().remembered()),
                 ::BF::Matrix(numMic, numFreq));
  stacked = ::BF::Matrix(numMic * covariance.stack().frames, numFreq);
}

void Mvdr::updateSources(const std::vector<::BF::SourceLocation>& newSources) {
  std::vector<::BF::SourceLocation> newList(newSources);
  if (!separationMatrices.empty() &&
      std::equal(newSources.begin(), newSources.end(), sources.begin(), sources.end(), samePlace)) {
    sources.swap(newList);
    return;
  }
  std::vector<Covariance> R;
  for (const ::BF::SourceLocation& source : newSources) {
    const auto known = std::find_if(sources.begin(), sources.end(),
                                    [&](const auto& other) { return samePlace(source, other); });
    R.push_back(known == sources.end()
                    ? covariance.at(source)
                    : sourceCovariances[static_cast<std::size_t>(known - sources.begin())]);
  }

  const int D = covariance.stack().frames;
  const std::ptrdiff_t size = std::ptrdiff_t{D} * numMic * numMic;
  std::vector<::BF::Matrix> W(static_cast<std::size_t>(numFreq),
                              ::BF::Matrix(static_cast<int>(R.size()), D * numMic));
  weights.resize(static_cast<std::size_t>(team.size()), weights[0]);
  team.share(numFreq, weights[0].nanosecondsFor(R.size()), [&](int first, int end, int member) {
    std::vector<const std::complex<double>*> ofBin(R.size());
    for (int k = first; k < end; ++k) {
      for (std::size_t s = 0; s < R.size(); ++s) ofBin[s] = R[s].data() + k * size;
      weights[static_cast<std::size_t>(member)].compute(ofBin,
                                                        W[static_cast<std::size_t>(k)].data());
    }
  });
  separationMatrices.swap(W);
  sourceCovariances.swap(R);
  sources.swap(newList);
}

void Mvdr::executeBeamForming(const ::BF::Matrix& input, ::BF::Matrix& output) {
  requireFits(input);
  const auto copy = [this](const ::BF::Matrix& frame, std::size_t d) {
    const std::size_t size = static_cast<std::size_t>(numMic) * static_cast<std::size_t>(numFreq);
    std::copy_n(frame.data(), size, stacked.data() + d * size);
  };
  copy(input, 0);
  const auto apart = static_cast<std::size_t>(covariance.stack().apart);
  for (std::size_t d = 1; d * apart <= earlier.size(); ++d) {
    copy(earlier[(next + earlier.size() - d * apart) % earlier.size()], d);
  }
  BF::executeBeamForming(stacked, output);
  hear(input);
}

void Mvdr::hear(const ::BF::Matrix& input) {
  requireFits(input);
  if (earlier.empty()) return;
  std::copy_n(input.data(), std::ptrdiff_t{numMic} * numFreq, earlier[next].data());
  next = (next + 1) % earlier.size();
}

void Mvdr::startOver() {
  for (::BF::Matrix& frame : earlier) frame = ::BF::Matrix(numMic, numFreq);
}

void Mvdr::requireFits(const ::BF::Matrix& input) const {
  const bool fits = input.getRowCount() == numMic && input.getColumnCount() == numFreq;
  if (!fits) throw ::BF::MatrixSizeMismatchException();
}

}  // namespace Separation
