#include "separation/mvdr/Mvdr.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <complex>
#include <cstddef>
#include <stdexcept>
#include <utility>

namespace Separation {

namespace {

constexpr double SPEED_OF_SOUND = 343.0;  // m/s; the base keeps it, nothing here depends on it

using Dense = Eigen::MatrixXcd;

Dense dense(const ::BF::Matrix& matrix) {
  return Eigen::Map<
      const Eigen::Matrix<std::complex<double>, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>>(
      matrix.data(), matrix.getRowCount(), matrix.getColumnCount());
}

bool samePlace(const ::BF::SourceLocation& a, const ::BF::SourceLocation& b) {
  return a.x == b.x && a.y == b.y && a.z == b.z;
}

}  // namespace

Mvdr::Mvdr(const SpatialCovariance& spatialCovariance, int samplingRateHz,
           const MvdrSettings& given)
    : BF(spatialCovariance.bins(), samplingRateHz, SPEED_OF_SOUND),
      covariance(spatialCovariance),
      settings(given) {
  numMic = covariance.microphones();
  if (settings.referenceMicrophone < 0 || settings.referenceMicrophone >= numMic) {
    throw std::invalid_argument("MVDR: no such reference microphone");
  }
  if (!(settings.loading > 0.0)) throw std::invalid_argument("MVDR: the loading is not positive");
}

void Mvdr::updateSources(const std::vector<::BF::SourceLocation>& newSources) {
  const bool same =
      separationMatrices.size() == static_cast<std::size_t>(numFreq) &&
      std::equal(newSources.begin(), newSources.end(), sources.begin(), sources.end(), samePlace);
  if (same) {
    sources = newSources;
    return;
  }
  std::vector<std::vector<::BF::Matrix>> R;
  for (const ::BF::SourceLocation& source : newSources) {
    const auto known = std::find_if(sources.begin(), sources.end(),
                                    [&](const auto& other) { return samePlace(source, other); });
    R.push_back(known == sources.end()
                    ? covariance.at(source)
                    : sourceCovariances[static_cast<std::size_t>(known - sources.begin())]);
  }

  const auto N = static_cast<int>(newSources.size());
  const int M = numMic;
  std::vector<::BF::Matrix> W(static_cast<std::size_t>(numFreq), ::BF::Matrix(N, M));
  for (std::size_t k = 0; k < W.size(); ++k) {
    Dense sum = Dense::Zero(M, M);
    for (int s = 0; s < N; ++s) sum += dense(R[static_cast<std::size_t>(s)][k]);
    const double sigma = sum.trace().real() / (M * std::max(N, 1));
    for (int s = 0; s < N; ++s) {
      const Dense Rs = dense(R[static_cast<std::size_t>(s)][k]);
      const Dense Rn = sum - Rs + settings.loading * sigma * Dense::Identity(M, M);
      const Dense G = Rn.llt().solve(Rs);
      const std::complex<double> trace = G.trace();
      for (int m = 0; m < M && trace != 0.0; ++m) {
        W[k].setElementAt(s, m, std::conj(G(m, settings.referenceMicrophone) / trace));
      }
    }
  }
  separationMatrices.swap(W);
  sourceCovariances.swap(R);
  sources = newSources;
}

void Mvdr::adaptSeparationMatrices() {}

}  // namespace Separation
