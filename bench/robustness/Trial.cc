#include "bench/robustness/Trial.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>

#include "tests/cli/CommandRun.h"

namespace {

constexpr int TALKERS = 2;

using Samples = std::vector<float>;

const std::string TALKER_ENTRIES =
    R"({"id": 0, "azimuth": 30, "distance": 1.5, "active": [[0.5, 4], [4.5, 10]]},
       {"id": 1, "azimuth": -60, "distance": 1.5, "active": [[1, 10]]})";

std::string sceneOf(const std::string& entries) { return R"({"sources": [)" + entries + "]}"; }

float& at(Samples& samples, int n, int microphone) {
  return samples[static_cast<std::size_t>(n) * Trial::MICROPHONES +
                 static_cast<std::size_t>(microphone)];
}

/// Changes every sample of the disturbed second.
std::function<void(Samples&)> everySample(const std::function<void(Samples&, int n)>& change) {
  return [change](Samples& samples) {
    for (int n = Trial::BEGIN * Trial::RATE; n < Trial::END * Trial::RATE; ++n) change(samples, n);
  };
}

/// Puts values in turn in place of one microphone's last frame of the disturbed second.
std::function<void(Samples&)> oneFrame(const std::vector<float>& values) {
  return [values](Samples& samples) {
    for (int i = 0; i < Trial::LENGTH; ++i) {
      at(samples, Trial::END * Trial::RATE - Trial::LENGTH + i, 1) =
          values[static_cast<std::size_t>(i) % values.size()];
    }
  };
}

/// An entry of a scene, active during the disturbed second, or in every second frame of it.
std::string entry(int id, const std::string& place, bool flickers = false) {
  std::string active = "[2, 3]";
  if (flickers) {
    active.clear();
    const double frame = static_cast<double>(Trial::ADVANCE) / Trial::RATE;
    for (double t = Trial::BEGIN; t < Trial::END - frame; t += 2 * frame) {
      active += (active.empty() ? "[" : ", [") + std::to_string(t) + ", " +
                std::to_string(t + frame) + "]";
    }
  }
  return R"(, {"id": )" + std::to_string(id) + ", " + place + R"(, "active": [)" + active + "]}";
}

std::string crowd() {
  std::string entries;
  for (int id = 2; id < 8; ++id) {
    entries += entry(id, R"("distance": 1.5, "azimuth": )" + std::to_string(45 * id));
  }
  return entries;
}

std::vector<Disturbance> makeDisturbances() {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  return {
      {.name = "silence", .spoil = everySample([](Samples& s, int n) {
                            for (int m = 0; m < Trial::MICROPHONES; ++m) at(s, n, m) = 0;
                          })},
      {.name = "a dead microphone",
       .spoil = everySample([](Samples& s, int n) { at(s, n, 1) = 0; })},
      {.name = "two identical microphones",
       .spoil = everySample([](Samples& s, int n) { at(s, n, 1) = at(s, n, 0); })},
      {.name = "clipped at a tenth of the peak", .spoil = everySample([](Samples& s, int n) {
                                                   for (int m = 0; m < Trial::MICROPHONES; ++m) {
                                                     at(s, n, m) =
                                                         std::clamp(at(s, n, m), -0.05F, 0.05F);
                                                   }
                                                 })},
      {.name = "a frame of NaN and infinity, ZERO", .spoil = oneFrame({nan, infinity, -infinity})},
      {.name = "a frame of NaN and infinity, KEEP",
       .spoil = oneFrame({nan, infinity, -infinity}),
       .options = {"--non-finite", "KEEP"}},
      {.name = "a frame of 3e38", .spoil = oneFrame({3e38F, -3e38F})},
      {.name = "eight sources", .sources = crowd()},
      {.name = "two sources at one position",
       .sources = entry(2, R"("distance": 1.5, "azimuth": 30)")},
      {.name = "a source 1 km above the grid",
       .sources = entry(2, R"("distance": 1000, "azimuth": 30, "elevation": 90)")},
      {.name = "an id in every second frame",
       .sources = entry(2, R"("distance": 1.5, "azimuth": 120)", true)},
      {.name = "one microphone", .options = {"--channels", "1"}, .lasts = true},
  };
}

/// Gaussian noise whose level wanders like speech's.
Samples talker(unsigned seed) {
  std::mt19937 generator(seed);
  std::normal_distribution<double> gaussian(0.0, 0.15);
  std::uniform_real_distribution<double> uniform;
  Samples samples(Trial::SECONDS * Trial::RATE);
  constexpr std::size_t SYLLABLE = Trial::RATE / 8;
  double from = 0.0;
  double to = 0.0;
  for (std::size_t n = 0; n < samples.size(); ++n) {
    if (n % SYLLABLE == 0) {
      from = to;
      to = std::pow(uniform(generator), 2.0);
    }
    const double share = static_cast<double>(n % SYLLABLE) / SYLLABLE;
    samples[n] = static_cast<float>(gaussian(generator) * ((1.0 - share) * from + share * to));
  }
  return samples;
}

double powerOf(const float* samples, std::size_t count) {
  double sum = 0.0;
  for (std::size_t n = 0; n < count; ++n) sum += static_cast<double>(samples[n]) * samples[n];
  return sum / static_cast<double>(count);
}

/// What is left of a disturbance in the last second, in dB.
double remainderOf(const Samples& actual, const Samples& expected) {
  Samples difference(Trial::RATE);
  const std::size_t begin = expected.size() - difference.size();
  for (std::size_t n = 0; n < difference.size(); ++n) {
    difference[n] = actual[begin + n] - expected[begin + n];
  }
  return 10.0 * std::log10(powerOf(difference.data(), difference.size()) /
                           powerOf(expected.data() + begin, difference.size()));
}

/// Frames from the disturbance's end to the last one that differs.
int framesToRecover(const Samples& actual, const Samples& expected) {
  const double limit = Trial::TOLERANCE * powerOf(expected.data(), expected.size());
  const int frames = static_cast<int>(expected.size()) / Trial::ADVANCE;
  const int end = Trial::END * Trial::RATE / Trial::ADVANCE;
  int last = end - 1;
  for (int f = end; f < frames; ++f) {
    float difference[Trial::ADVANCE];
    const auto first = static_cast<std::ptrdiff_t>(f) * Trial::ADVANCE;
    for (std::ptrdiff_t n = 0; n < Trial::ADVANCE; ++n) {
      const auto i = static_cast<std::size_t>(first + n);
      difference[n] = actual[i] - expected[i];
    }
    if (powerOf(difference, Trial::ADVANCE) > limit) last = f;
  }
  // A tenth of a second's agreement by chance at the end is no recovery.
  return last >= frames - Trial::RATE / Trial::ADVANCE / 10 ? Trial::NEVER : last - end + 1;
}

CommandRun checkedRun(const std::vector<std::string>& arguments) {
  CommandRun run = runCommand(arguments);
  if (run.status != 0) throw std::runtime_error(arguments.front() + ": " + run.errors);
  return run;
}

}  // namespace

const std::vector<Disturbance>& disturbances() {
  static const std::vector<Disturbance> ALL = makeDisturbances();
  return ALL;
}

const Disturbance& disturbanceNamed(const std::string& name) {
  for (const Disturbance& disturbance : disturbances()) {
    if (disturbance.name == name) return disturbance;
  }
  throw std::invalid_argument("no disturbance is called " + name);
}

struct Trial::Separated {
  CommandRun run;
  std::vector<Samples> talkers;
  int replaced = 0;
};

Trial::Trial() {
  for (const int microphones : {MICROPHONES, 1}) {
    checkedRun({"tfdb", "geometry", folder / ("ring" + std::to_string(microphones) + ".sofa"),
                "--circular", std::to_string(microphones), "0.05", "--azimuth-step", "5", "--rate",
                std::to_string(RATE), "--length", std::to_string(LENGTH), "--distances", "1.5"});
  }
  std::vector<std::string> mix = {"mix",
                                  folder.write("talkers.json", sceneOf(TALKER_ENTRIES)),
                                  "--tf",
                                  folder / "ring4.sofa",
                                  "-o",
                                  folder / "mix.wav",
                                  "--noise-level",
                                  "-60",
                                  "--dry"};
  for (int i = 0; i < TALKERS; ++i) {
    mix.push_back(folder / ("dry" + std::to_string(i) + ".wav"));
    writeSound(mix.back(), RATE, 1, talker(static_cast<unsigned>(i) + 1));
  }
  checkedRun(mix);
  recording = readSound(folder / "mix.wav").samples;
}

Trial::Separated Trial::separate(const std::string& method, const Disturbance& disturbance) {
  Samples spoilt = recording;
  if (disturbance.spoil) disturbance.spoil(spoilt);
  writeSound(folder / "spoilt.wav", RATE, MICROPHONES, spoilt);
  const bool isSingle = !disturbance.options.empty() && disturbance.options.front() == "--channels";
  std::vector<std::string> words = {
      "separate",  folder / "spoilt.wav",
      "--sources", folder.write("scene.json", sceneOf(TALKER_ENTRIES + disturbance.sources)),
      "--method",  method,
      "-o",        folder / "out",
      "--advance", std::to_string(ADVANCE),
      "--format",  "FLOAT",
      "--force",   "--quiet"};
  if (method != "MSNR") {
    words.insert(words.end(), {"--tf", folder / (isSingle ? "ring1.sofa" : "ring4.sofa")});
  }
  if (method == "ML") words.insert(words.end(), {"--noise-from", "0:0.45"});
  words.insert(words.end(), disturbance.options.begin(), disturbance.options.end());

  Separated result{runCommand(words), {}, 0};
  if (result.run.status != 0) return result;
  std::ifstream file(folder / "out/timeline.json");
  const nlohmann::json timeline = nlohmann::json::parse(file);
  for (std::size_t i = 0; i < TALKERS; ++i) {
    result.talkers.push_back(
        readSound(folder / ("out/source_" + std::to_string(i) + ".wav")).samples);
    result.replaced += timeline["sources"][i]["non_finite_samples"].get<int>();
  }
  return result;
}

const std::vector<Samples>& Trial::undisturbed(const std::string& method) {
  std::vector<Samples>& reference = references[method];
  if (reference.empty()) {
    const Separated result = separate(method, {.name = "none"});
    if (result.run.status != 0) throw std::runtime_error(method + ": " + result.run.errors);
    reference = result.talkers;
  }
  return reference;
}

Outcome Trial::run(const std::string& method, const Disturbance& disturbance) {
  const Separated result = separate(method, disturbance);
  Outcome outcome{result.run.status, result.run.errors, result.replaced, 0,
                  -std::numeric_limits<double>::infinity()};
  if (outcome.status != 0 || disturbance.lasts) return outcome;
  const std::vector<Samples>& expected = undisturbed(method);
  for (std::size_t i = 0; i < TALKERS; ++i) {
    outcome.framesToRecover =
        std::max(outcome.framesToRecover, framesToRecover(result.talkers[i], expected[i]));
    outcome.remainder = std::max(outcome.remainder, remainderOf(result.talkers[i], expected[i]));
  }
  return outcome;
}
