// Separates two voices of noise, block by block as they would come from a sound card, and says how
// pure each is: two microphones, a database of pure delays.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <random>

#include "separation/Separator.h"

int main() {
  constexpr int MICS = 2, SAMPLES = 16000, BLOCK = 300;
  Separation::Settings settings;  // 16 kHz, frames of 512 samples, a new one every 128
  settings.method = BF::BF_ALGORITHM_NULL;

  // Where sources may be, and by how many samples each microphone hears them late.
  const int delays[2][MICS] = {{0, 5}, {4, 0}};
  BF::TransformFunctionDatabase database;
  database.micLocations = {{0.0, 0.05, 0.0}, {0.0, -0.05, 0.0}};
  database.sourceLocations = {{0.0, 1.0, 0.0, 0, true}, {0.0, -1.0, 0.0, 1, true}};
  for (int k = 0; k <= settings.length / 2; ++k) {
    BF::Matrix A(MICS, 2);  // element (m, s): transfer function from position s to microphone m
    for (int i = 0; i < 4; ++i) {
      const double phase = -6.283185307179586 * k * delays[i % 2][i / 2] / settings.length;
      A.setElementAt(i / 2, i % 2, std::polar(1.0, phase));
    }
    database.transferFunctions.push_back(A);
  }

  std::mt19937 random;
  std::normal_distribution<float> gaussian(0.0F, 0.1F);
  std::map<int, std::vector<float>> voices, separated;  // by source: 7 and 8
  std::vector<float> recording(SAMPLES * MICS);         // the microphones' samples in turn
  for (int s = 0; s < 2; ++s) {
    for (int n = 0; n < SAMPLES; ++n) voices[7 + s].push_back(gaussian(random));
    for (int m = 0; m < MICS; ++m) {
      const int late = delays[s][m];
      for (int n = late; n < SAMPLES; ++n) recording[n * MICS + m] += voices[7 + s][n - late];
    }
  }

  Separation::Separator separator(settings, database);
  separator.setSources({{0.0, 1.1, 0.0, 7, true}, {0.1, -1.0, 0.0, 8, true}});
  const auto keep = [&separated](const Separation::Output& output) {
    for (const auto& [id, samples] : output.signals) {
      separated[id].resize(output.start);  // silence where an output did not have the source
      separated[id].insert(separated[id].end(), samples.begin(), samples.end());
    }
  };
  for (int n = 0; n < SAMPLES; n += BLOCK) {
    keep(separator.push(&recording[n * MICS], std::min(BLOCK, SAMPLES - n)));
  }
  keep(separator.flush());
  for (const auto& [id, samples] : separated) {
    double voice = 0.0, rest = 0.0;
    for (int n = 0; n < SAMPLES; ++n) voice += std::pow(voices[id][n], 2);
    for (int n = 0; n < SAMPLES; ++n) rest += std::pow(samples[n] - voices[id][n], 2);
    std::printf("source %d: %.1f dB above the rest\n", id, 10.0 * std::log10(voice / rest));
  }
}
