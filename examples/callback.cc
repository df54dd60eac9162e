// Live sound through callbacks, as sound cards and robots' middleware call them: samples of all
// microphones in blocks of any size, and now and then who is where. A click shows the delay.
#include <algorithm>
#include <cstdio>
#include <deque>

#include "separation/Separator.h"

/// What comes in is heard a constant time later: latency() samples. Both callbacks belong to one
/// thread; one that may never wait hands its blocks over to such a thread.
class Callbacks {
 public:
  Callbacks(const Separation::Settings& settings, const BF::TransformFunctionDatabase& database)
      : separator(settings, database),
        waiting(static_cast<std::size_t>(separator.latency()), 0.0F) {}

  void onSources(const std::vector<BF::SourceLocation>& sources) { separator.setSources(sources); }

  /// microphones: interleaved, `count` samples each; sound: as many, of the source with this id.
  void onAudio(const float* microphones, std::size_t count, int id, float* sound) {
    const Separation::Output& output = separator.push(microphones, count);
    const std::size_t before = waiting.size();
    waiting.resize(before + output.count, 0.0F);  // silence where there is no such source
    for (const auto& [source, samples] : output.signals) {
      if (source != id) continue;
      std::copy(samples.begin(), samples.end(), waiting.end() - std::ssize(samples));
    }
    const auto end = waiting.begin() + static_cast<std::ptrdiff_t>(count);
    std::copy(waiting.begin(), end, sound);
    waiting.erase(waiting.begin(), end);
  }

 private:
  Separation::Separator separator;
  std::deque<float> waiting;  // separated samples that are still to be heard
};

int main() {
  Separation::Settings settings;  // 16 kHz, frames of 512 samples
  settings.method = BF::BF_ALGORITHM_NULL;
  settings.latency = 128;  // 8 ms
  settings.advance = 64;
  BF::TransformFunctionDatabase database;  // two places, each heard by one of the microphones
  database.micLocations = {{0.0, 0.05, 0.0}, {0.0, -0.05, 0.0}};
  database.sourceLocations = {{0.0, 1.0, 0.0, 0, true}, {0.0, -1.0, 0.0, 1, true}};
  database.transferFunctions.assign(settings.length / 2 + 1, BF::Matrix::I(2));

  Callbacks callbacks(settings, database);
  callbacks.onSources({{0.0, 1.0, 0.0, 7, true}, {0.0, -1.0, 0.0, 8, true}});
  constexpr int PERIOD = 50, CLICK = 1234;
  for (int n = 0; n < 4000; n += PERIOD) {
    float microphones[2 * PERIOD] = {}, sound[PERIOD];
    if (CLICK / PERIOD == n / PERIOD) microphones[2 * (CLICK % PERIOD)] = 0.5F;
    callbacks.onAudio(microphones, PERIOD, 7, sound);
    for (int i = 0; i < PERIOD; ++i) {
      if (sound[i] > 0.4F) std::printf("click of %.2f after %d samples\n", sound[i], n + i - CLICK);
    }
  }
}
