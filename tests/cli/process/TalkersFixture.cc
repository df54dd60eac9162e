#include "tests/cli/process/TalkersFixture.h"

#include <cmath>
#include <complex>
#include <numbers>
#include <random>

#include "fileio/SofaWriter.h"

namespace {

constexpr std::size_t SAMPLES = 24000;
constexpr int TALKER_DIRECTIONS[] = {1, 4};

/// A delay, then an echo-free response that dies out: different for every seed.
std::vector<double> randomResponse(int taps, unsigned seed) {
  std::mt19937 generator(seed);
  std::normal_distribution<double> gaussian;
  std::vector<double> h(static_cast<std::size_t>(taps));
  const std::size_t delay = generator() % 8;
  for (std::size_t n = delay; n < h.size(); ++n) {
    h[n] = gaussian(generator) * std::exp(-0.4 * static_cast<double>(n - delay));
  }
  h[delay] += 2.0;
  return h;
}

/// H(k) = Σ h(n) · e^(−j2πkn/length), k = 0 … length/2.
std::vector<std::complex<float>> transferFunction(const std::vector<double>& h, int length) {
  std::vector<std::complex<float>> H;
  for (int k = 0; k <= length / 2; ++k) {
    std::complex<double> sum;
    for (std::size_t n = 0; n < h.size(); ++n) {
      sum += h[n] * std::polar(1.0, -2.0 * std::numbers::pi * k * static_cast<double>(n) / length);
    }
    H.emplace_back(sum);
  }
  return H;
}

}  // namespace

Talkers::Talkers()
    : database(folder / "array.sofa"),
      mixture(folder / "mix.wav"),
      dry{noise(SAMPLES, 11), noise(SAMPLES, 12)} {
  for (unsigned i = 0; i < DIRECTIONS * MICROPHONES; ++i) {
    responses.push_back(randomResponse(TAPS, 100 + i));
  }
  scene = folder.write("scene.json",
                       R"({"sources": [{"id": 3, "azimuth": 45}, {"id": 7, "azimuth": 180}]})");
  writeDatabase();
  writeMixture();
}

void Talkers::writeDatabase() {
  SofaTransferFunctions data;
  data.samplingRate = RATE;
  data.frequencies = LENGTH / 2 + 1;
  data.title = "test array";
  for (int m = 0; m < DIRECTIONS; ++m) {
    const double angle = 2.0 * std::numbers::pi * m / DIRECTIONS;
    data.sourcePositions.push_back({std::cos(angle), std::sin(angle), 0.0});
    for (int r = 0; r < MICROPHONES; ++r) {
      for (const auto& value : transferFunction(response(m, r), LENGTH)) {
        data.values.push_back(value);
      }
    }
  }
  for (int r = 0; r < MICROPHONES; ++r) data.receiverPositions.push_back({0.0, 0.1 * r, 0.0});
  writeSofa(database, data);
}

void Talkers::writeMixture() {
  std::vector<float> mix(SAMPLES * MICROPHONES);
  for (std::size_t s = 0; s < dry.size(); ++s) {
    firstMicrophone.emplace_back(SAMPLES);
    for (int r = 0; r < MICROPHONES; ++r) {
      const std::vector<double>& h = response(TALKER_DIRECTIONS[s], r);
      for (std::size_t n = 0; n < SAMPLES; ++n) {
        double sum = 0.0;
        for (std::size_t d = 0; d < h.size() && d <= n; ++d) sum += h[d] * dry[s][n - d];
        const auto value = static_cast<float>(0.1 * sum);
        mix[n * MICROPHONES + static_cast<std::size_t>(r)] += value;
        if (r == 0) firstMicrophone[s][n] = value;
      }
    }
  }
  writeSound(mixture, RATE, MICROPHONES, mix);
}
