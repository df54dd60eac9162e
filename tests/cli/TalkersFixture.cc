#include "tests/cli/TalkersFixture.h"

#include <cmath>
#include <complex>
#include <numbers>
#include <random>

#include "fileio/SofaWriter.h"

namespace {

constexpr std::size_t SAMPLES = 24000;
constexpr int DIRECTIONS = 8;
constexpr int TAPS = 24;
constexpr int LENGTH = 512;

/// A delay, then an echo-free response that dies out: different for every seed.
std::vector<double> randomResponse(unsigned seed) {
  std::mt19937 generator(seed);
  std::normal_distribution<double> gaussian;
  const std::size_t delay = generator() % 8;
  std::vector<double> h(delay, 0.0);
  for (int n = 0; h.size() < TAPS; ++n) h.push_back(gaussian(generator) * std::exp(-0.4 * n));
  h[delay] += 2.0;
  return h;
}

}  // namespace

Talkers::Talkers() : dry{noise(SAMPLES, 11), noise(SAMPLES, 12)} {
  for (unsigned i = 0; i < DIRECTIONS * MICROPHONES; ++i) {
    responses.push_back(randomResponse(100 + i));
  }
  folder.write("scene.json",
               R"({"sources": [{"id": 3, "azimuth": 45}, {"id": 7, "azimuth": 180}]})");
  writeDatabase();
  std::vector<float> mix = heard(1, dry[0]);
  const std::vector<float> other = heard(4, dry[1]);
  for (std::size_t n = 0; n < mix.size(); ++n) mix[n] = 0.1F * (mix[n] + other[n]);
  writeSound(folder / "mix.wav", RATE, MICROPHONES, mix);
}

std::vector<float> Talkers::heard(int direction, const std::vector<float>& signal) const {
  std::vector<float> result;
  for (std::size_t n = 0; n < signal.size(); ++n) {
    for (int r = 0; r < MICROPHONES; ++r) {
      const auto& h = responses[static_cast<std::size_t>(direction * MICROPHONES + r)];
      double sum = 0.0;
      for (std::size_t d = 0; d < h.size() && d <= n; ++d) sum += h[d] * signal[n - d];
      result.push_back(static_cast<float>(sum));
    }
  }
  return result;
}

// H(k) = Σ h(n) · e^(−j2πkn/LENGTH), k = 0 … LENGTH/2.
void Talkers::writeDatabase() const {
  using std::numbers::pi;
  SofaTransferFunctions data;
  data.samplingRate = RATE;
  data.frequencies = LENGTH / 2 + 1;
  data.title = "test array";
  for (int m = 0; m < DIRECTIONS; ++m) {
    const double angle = 2.0 * pi * m / DIRECTIONS;
    data.sourcePositions.push_back({std::cos(angle), std::sin(angle), 0.0});
  }
  for (const std::vector<double>& h : responses) {
    for (int k = 0; k <= LENGTH / 2; ++k) {
      std::complex<double> sum;
      for (int n = 0; n < TAPS; ++n) {
        sum += h[static_cast<std::size_t>(n)] * std::polar(1.0, -2.0 * pi * k * n / LENGTH);
      }
      data.values.emplace_back(sum);
    }
  }
  for (int r = 0; r < MICROPHONES; ++r) data.receiverPositions.push_back({0.0, 0.1 * r, 0.0});
  writeSofa(folder / "array.sofa", data);
}
