#include "separation/ResponseFile.h"

#include <algorithm>
#include <vector>

#include "audio/SignalFile.h"
#include "responses/ResponseSet.h"
#include "scene/SceneMoment.h"

Separation::ImpulseResponses readImpulseResponses(const std::string& path, int samplingRate) {
  const ResponseSet set(path);
  Separation::ImpulseResponses result;
  result.microphones = set.microphones();
  result.samplingRate = samplingRate;
  std::vector<std::vector<float>> all;
  for (std::size_t p = 0; p < set.measurements(); ++p) {
    result.positions.push_back(asSeparated(set.position(p), static_cast<int>(p), true));
    for (std::size_t m = 0; m < set.microphones(); ++m) {
      const std::vector<double> h = set.response(p, m);
      Signal signal = {{h.begin(), h.end()}, set.samplingRate()};
      if (signal.samplingRate != samplingRate) signal = resampled(signal, samplingRate, path);
      result.taps = std::max(result.taps, signal.samples.size());
      all.push_back(std::move(signal.samples));
    }
  }
  result.samples.reserve(all.size() * result.taps);
  for (std::vector<float>& h : all) {
    h.resize(result.taps);
    result.samples.insert(result.samples.end(), h.begin(), h.end());
    h = {};
  }
  return result;
}
