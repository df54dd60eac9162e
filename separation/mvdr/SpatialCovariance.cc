#include "separation/mvdr/SpatialCovariance.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <kissfft/kissfft.hh>
#include <limits>
#include <utility>

#include "separation/mvdr/FiniteProducts.h"

namespace Separation {

namespace {

constexpr double ON_THE_GRID = 1e-3;   // metres
constexpr double NEIGHBOURHOOD = 1.5;  // times the distance of the nearest

/// Positions that are kept may take this much memory together, in bytes.
constexpr std::size_t KEPT = std::size_t{1} << 28;

using Spectrum = std::vector<std::complex<double>>;

double distance(const BF::Location& a, const BF::Location& b) {
  return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z);
}

/// A point that is nearer than all positions or farther away, moved along its direction to where it
/// is not.
BF::Location withinRanges(const BF::Location& point,
                          const std::vector<BF::SourceLocation>& positions) {
  double least = std::numeric_limits<double>::infinity();
  double most = 0.0;
  for (const BF::Location& position : positions) {
    least = std::min(least, distance(position, {}));
    most = std::max(most, distance(position, {}));
  }
  const double range = distance(point, {});
  if (!(range > 0.0)) return point;
  const double scale = std::clamp(range, least, most) / range;
  return {scale * point.x, scale * point.y, scale * point.z};
}

}  // namespace

SpatialCovariance::SpatialCovariance(ImpulseResponses impulseResponses,
                                     const std::vector<float>& window, const FrameStack& frameStack)
    : responses(std::move(impulseResponses)), L(window.size()), frames(frameStack), rho(L) {
  for (std::size_t tau = 0; tau < L; ++tau) {
    for (std::size_t n = 0; n + tau < L; ++n) rho[tau] += double{window[n + tau]} * window[n];
  }
}

// The samples by which frame d of the stack is earlier.
std::size_t SpatialCovariance::lag(std::size_t d) const {
  return d * static_cast<std::size_t>(frames.apart) * static_cast<std::size_t>(frames.advance);
}

Covariance SpatialCovariance::computed(std::size_t p) const {
  const std::size_t M = responses.microphones;
  const auto D = static_cast<std::size_t>(frames.frames);
  // So long that no two of the lags that count, up to L − 1 around 0 and lag(d), fall on each
  // other.
  const std::size_t size = std::bit_ceil(responses.taps + lag(D - 1) + L - 1);
  const kissfft<double> forward(size, false);
  const kissfft<double> inverse(size, true);
  const kissfft<double> ofFrame(L, false);
  std::vector<Spectrum> H(M, Spectrum(size));
  Spectrum work(size);
  for (std::size_t m = 0; m < M; ++m) {
    const float* h = responses.response(p, m);
    std::fill(std::copy(h, h + responses.taps, work.begin()), work.end(), 0.0);
    forward.transform(work.data(), H[m].data());
  }

  Covariance R(bins() * D * M * M);
  Spectrum lags(size);
  Spectrum weighted(L);
  Spectrum frame(L);
  const double scale = 1.0 / static_cast<double>(size);
  // Transforms r(A + τ) · ρ(τ); r_ji(τ) is r_ij(−τ).
  const auto transform = [&](std::size_t A, bool reversed) {
    const auto r = [&](std::size_t t) { return lags[(reversed ? size - t : t) % size].real(); };
    // e^(−j2πkτ/L) is the same for τ and τ − L, so both stand at index τ.
    weighted[0] = scale * rho[0] * r(A);
    for (std::size_t tau = 1; tau < L; ++tau) {
      weighted[tau] =
          scale * (rho[tau] * r(A + tau) + rho[L - tau] * r((size + A + tau - L) % size));
    }
    ofFrame.transform(weighted.data(), frame.data());
  };
  for (std::size_t i = 0; i < M; ++i) {
    for (std::size_t j = i; j < M; ++j) {
      for (std::size_t k = 0; k < size; ++k) work[k] = timesConjugate(H[i][k], H[j][k]);
      inverse.transform(work.data(), lags.data());
      for (std::size_t d = 0; d < D; ++d) {
        const auto at = [&](std::size_t k, std::size_t row, std::size_t column) -> auto& {
          return R[((k * D + d) * M + row) * M + column];
        };
        transform(lag(d), false);
        const bool isReal = d == 0 && i == j;
        for (std::size_t k = 0; k < bins(); ++k) at(k, i, j) = isReal ? frame[k].real() : frame[k];
        if (i == j) continue;
        if (d > 0) transform(lag(d), true);
        for (std::size_t k = 0; k < bins(); ++k) {
          at(k, j, i) = d > 0 ? frame[k] : std::conj(frame[k]);
        }
      }
    }
  }
  return R;
}

const Covariance& SpatialCovariance::ofPosition(std::size_t p) {
  const auto found = known.find(p);
  if (found != known.end()) return found->second;
  Covariance R = computed(p);
  if ((known.size() + 1) * R.size() * sizeof R[0] > KEPT) known.clear();
  return known.emplace(p, std::move(R)).first->second;
}

Covariance SpatialCovariance::at(const BF::Location& point) {
  const BF::Location place = withinRanges(point, responses.positions);
  std::vector<double> distances;
  for (const BF::SourceLocation& position : responses.positions) {
    distances.push_back(distance(position, place));
  }
  const auto nearest = std::min_element(distances.begin(), distances.end());
  const double least = *nearest;
  if (least < ON_THE_GRID) return ofPosition(static_cast<std::size_t>(nearest - distances.begin()));

  Covariance mean(ofPosition(static_cast<std::size_t>(nearest - distances.begin())).size());
  double weights = 0.0;
  for (const double d : distances) weights += d > NEIGHBOURHOOD * least ? 0.0 : 1.0 / (d * d);
  for (std::size_t p = 0; p < distances.size(); ++p) {
    if (distances[p] > NEIGHBOURHOOD * least) continue;
    const double weight = 1.0 / (distances[p] * distances[p] * weights);
    const Covariance& R = ofPosition(p);
    for (std::size_t i = 0; i < mean.size(); ++i) mean[i] += weight * R[i];
  }
  return mean;
}

}  // namespace Separation
