#pragma once

#include <functional>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "tests/support/AudioTesting.h"

/// What goes wrong in a recording of two talkers, or in the scene: all of it within
/// [Trial::BEGIN, Trial::END) seconds unless `lasts`.
struct Disturbance {
  std::string name;
  std::function<void(std::vector<float>& samples)> spoil = {};  ///< microphones in turn
  std::string sources = {};               ///< entries of the scene's list, after the talkers
  std::vector<std::string> options = {};  ///< of `zelk-sss separate`
  bool lasts = false;                     ///< there is no output without it to compare with
};

/// All disturbances, in the order of the table.
const std::vector<Disturbance>& disturbances();
const Disturbance& disturbanceNamed(const std::string& name);

/// What a separation under a disturbance gave.
struct Outcome {
  int status = -1;
  std::string errors;       ///< of standard error
  int replaced = 0;         ///< output samples that were not finite, of both talkers
  int framesToRecover = 0;  ///< NEVER: not until the recording's end
  double remainder = 0;     ///< difference over the last second, in dB of the undisturbed power
};

/// Separates two talkers of modulated noise before a ring of four microphones by the real command,
/// once undisturbed and once with each disturbance asked for.
class Trial {
 public:
  static constexpr int RATE = 16000;
  static constexpr int MICROPHONES = 4;
  static constexpr int LENGTH = 512;   ///< samples of a frame
  static constexpr int ADVANCE = 128;  ///< samples
  static constexpr int SECONDS = 10;
  static constexpr int BEGIN = 2;  ///< of the disturbance, seconds
  static constexpr int END = 3;
  static constexpr int NEVER = std::numeric_limits<int>::max();
  static constexpr double TOLERANCE = 1e-3;  ///< −30 dB

  Trial();

  /// framesToRecover counts the frames from the disturbance's end to the last one in which a
  /// talker's output differs from the undisturbed one by more than TOLERANCE of its mean power; all
  /// measures are those of the talker that fares worse.
  Outcome run(const std::string& method, const Disturbance& disturbance);

 private:
  struct Separated;

  Separated separate(const std::string& method, const Disturbance& disturbance);
  const std::vector<std::vector<float>>& undisturbed(const std::string& method);

  TestFolder folder;
  std::vector<float> recording;
  std::map<std::string, std::vector<std::vector<float>>> references;  // by method: of each talker
};
