#include "responses/Reverberation.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>

#include "dsp/Decibels.h"

namespace {

constexpr double TAIL_DELAY = 0.005;  // seconds

double energy(const std::vector<double>& samples) {
  double sum = 0.0;
  for (const double sample : samples) sum += sample * sample;
  return sum;
}

}  // namespace

// tail(n) = g(n) · 10^(−3 · n / (t60 · rate)), g Gaussian, scaled to the energy asked for.
std::vector<double> Reverberation::added(std::vector<double> response, int rate,
                                         std::size_t number) const {
  if (t60 <= 0.0 || response.empty()) return response;
  std::seed_seq seeds{seed, static_cast<unsigned>(number)};
  std::mt19937 generator(seeds);
  std::normal_distribution<double> gaussian;
  std::vector<double> tail(static_cast<std::size_t>(std::ceil(t60 * rate)));
  for (std::size_t n = 0; n < tail.size(); ++n) {
    tail[n] = gaussian(generator) * std::pow(10.0, -3.0 * static_cast<double>(n) / (t60 * rate));
  }
  const double scale =
      std::sqrt(energy(response) * Audio::powerRatio(-directToReverberant) / energy(tail));

  const auto peak = std::max_element(response.begin(), response.end(),
                                     [](double a, double b) { return std::abs(a) < std::abs(b); });
  const std::size_t begin = static_cast<std::size_t>(peak - response.begin()) +
                            static_cast<std::size_t>(std::lround(TAIL_DELAY * rate));
  response.resize(std::max(response.size(), begin + tail.size()));
  for (std::size_t n = 0; n < tail.size(); ++n) response[begin + n] += scale * tail[n];
  return response;
}
