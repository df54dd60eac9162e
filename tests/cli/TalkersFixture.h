#pragma once

#include <string>
#include <vector>

#include "tests/cli/CommandTest.h"

/// Two talkers before three microphones in a room without echoes, all of it in the folder: a
/// transfer-function database of eight directions (array.sofa), a scene (scene.json, the ids 3 and
/// 7 in the directions 1 and 4) and a recording made by convolution (mix.wav).
class Talkers : public CommandTest {
 protected:
  static constexpr int RATE = 16000;
  static constexpr int MICROPHONES = 3;

  Talkers();

  /// What the microphones hear of a signal from a direction, interleaved.
  std::vector<float> heard(int direction, const std::vector<float>& signal) const;

  const std::string files = " --tf array.sofa --sources scene.json ";
  std::vector<std::vector<float>> dry;  ///< of the ids 3 and 7

 private:
  void writeDatabase() const;

  std::vector<std::vector<double>> responses;  ///< microphone by microphone of each direction
};
