#include "separation/mvdr/SpatialCovariance.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <kissfft/kissfft.hh>
#include <stdexcept>
#include <utility>

#include "dsp/FastConvolution.h"

namespace Separation {

namespace {

/// A point this close to a position of the grid, in metres, stands on it.
constexpr double ON_THE_GRID = 1e-3;

/// Neighbours take part up to this many times the distance of the nearest.
constexpr double NEIGHBOURHOOD = 1.5;

double distance(const BF::Location& a, const BF::Location& b) {
  return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z);
}

/// sum += factor · R, bin by bin.
void add(double factor, const std::vector<BF::Matrix>& R, std::vector<BF::Matrix>& sum) {
  for (std::size_t k = 0; k < R.size(); ++k) sum[k] = sum[k] + R[k] * factor;
}

}  // namespace

SpatialCovariance::SpatialCovariance(ImpulseResponses impulseResponses,
                                     const std::vector<float>& window)
    : responses(std::move(impulseResponses)), frameLength(window.size()) {
  const std::size_t count = responses.positions.size() * responses.microphones * responses.taps;
  if (count == 0 || responses.samples.size() != count || frameLength == 0) {
    throw std::invalid_argument(
        "impulse responses: found none, expected positions, microphones and taps");
  }
  const std::vector<double> w(window.begin(), window.end());
  const std::vector<double> lags = crossCorrelation(w, w, static_cast<int>(frameLength) - 1);
  rho.assign(lags.begin() + static_cast<std::ptrdiff_t>(frameLength) - 1, lags.end());
}

std::vector<BF::Matrix> SpatialCovariance::ofPosition(std::size_t p) const {
  const std::size_t L = frameLength;
  const auto M = static_cast<int>(responses.microphones);
  std::vector<BF::Matrix> R(static_cast<std::size_t>(bins()), BF::Matrix(M, M));
  const auto response = [&](int m) {
    const double* h = responses.response(p, static_cast<std::size_t>(m));
    return std::vector<double>(h, h + responses.taps);
  };
  const kissfft<double> transform(L, false);
  std::vector<std::complex<double>> weighted(L);
  std::vector<std::complex<double>> spectrum(L);
  for (int i = 0; i < M; ++i) {
    for (int j = i; j < M; ++j) {
      const std::vector<double> r =
          crossCorrelation(response(j), response(i), static_cast<int>(L) - 1);
      // e^(−j2πkτ/L) is the same for τ and τ − L, so both stand at index τ.
      weighted[0] = r[L - 1] * rho[0];
      for (std::size_t tau = 1; tau < L; ++tau) {
        weighted[tau] = r[L - 1 + tau] * rho[tau] + r[tau - 1] * rho[L - tau];
      }
      transform.transform(weighted.data(), spectrum.data());
      for (std::size_t k = 0; k < R.size(); ++k) {
        const std::complex<double> value = i == j ? spectrum[k].real() : spectrum[k];
        R[k].setElementAt(i, j, value);
        R[k].setElementAt(j, i, std::conj(value));
      }
    }
  }
  return R;
}

std::vector<BF::Matrix> SpatialCovariance::at(const BF::Location& point) const {
  std::vector<double> distances;
  for (const BF::SourceLocation& position : responses.positions) {
    distances.push_back(distance(position, point));
  }
  const auto nearest = std::min_element(distances.begin(), distances.end());
  const double least = *nearest;
  if (least < ON_THE_GRID) return ofPosition(static_cast<std::size_t>(nearest - distances.begin()));

  std::vector<BF::Matrix> sum(static_cast<std::size_t>(bins()),
                              BF::Matrix(microphones(), microphones()));
  double weights = 0.0;
  for (std::size_t p = 0; p < distances.size(); ++p) {
    if (distances[p] > NEIGHBOURHOOD * least) continue;
    const double weight = 1.0 / (distances[p] * distances[p]);
    add(weight, ofPosition(p), sum);
    weights += weight;
  }
  for (BF::Matrix& R : sum) R = R * (1.0 / weights);
  return sum;
}

}  // namespace Separation
