#pragma once

#include <array>
#include <cmath>
#include <map>
#include <numbers>
#include <vector>

/// Slow oracle for rooms: images found by mirroring at one wall after the other, and their sound by
/// a windowed sinc at every image's exact time.
namespace reference {

using Place = std::array<double, 3>;

/// Places of all images after up to `order` mirrorings, with the factor that they have then. A
/// place that several ways lead to counts once, by a shortest way.
inline std::vector<std::pair<Place, double>> mirrorImages(const Place& size,
                                                          const std::array<double, 6>& reflection,
                                                          const Place& source, int order) {
  const auto key = [](const Place& p) {
    return std::array<long, 3>{std::lround(1e6 * p[0]), std::lround(1e6 * p[1]),
                               std::lround(1e6 * p[2])};
  };
  std::map<std::array<long, 3>, double> known = {{key(source), 1.0}};
  std::vector<std::pair<Place, double>> all = {{source, 1.0}};
  std::size_t begin = 0;
  for (int i = 0; i < order; ++i) {
    const std::size_t end = all.size();
    for (; begin < end; ++begin) {
      for (std::size_t wall = 0; wall < 6; ++wall) {
        Place p = all[begin].first;
        p[wall / 2] = 2.0 * (wall % 2 == 0 ? 0.0 : size[wall / 2]) - p[wall / 2];
        const double gain = all[begin].second * reflection[wall];
        if (known.emplace(key(p), gain).second) all.emplace_back(p, gain);
      }
    }
  }
  return all;
}

/// gain · w(n − t) · sinc(n − t) for n = 0 …, w a Hann window of ±reach samples.
inline void addPulse(std::vector<double>& samples, double t, double gain, double reach) {
  for (std::size_t n = 0; n < samples.size(); ++n) {
    const double x = static_cast<double>(n) - t;
    if (std::abs(x) >= reach) continue;
    const double sinc = x == 0.0 ? 1.0 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
    samples[n] += gain * (0.5 + 0.5 * std::cos(std::numbers::pi * x / reach)) * sinc;
  }
}

}  // namespace reference
