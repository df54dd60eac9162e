#pragma once

#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "tests/toolbox/AudioTesting.h"

/// Two talkers before three microphones in a room without echoes, all of it on disk: a
/// transfer-function database of eight directions, a scene, and a recording made by convolution.
class Talkers : public testing::Test {
 protected:
  static constexpr int RATE = 16000;
  static constexpr int LENGTH = 512;
  static constexpr int MICROPHONES = 3;
  static constexpr int DIRECTIONS = 8;
  static constexpr int TAPS = 24;

  Talkers();

  /// The response from a direction to a microphone.
  const std::vector<double>& response(int direction, int microphone) const {
    return responses[static_cast<std::size_t>(direction * MICROPHONES + microphone)];
  }

  TestFolder folder;
  std::string database;                             ///< SOFA file
  std::string scene;                                ///< ids 3 and 7 in the directions 1 and 4
  std::string mixture;                              ///< WAV, three channels
  std::vector<std::vector<float>> dry;              ///< of the ids 3 and 7
  std::vector<std::vector<float>> firstMicrophone;  ///< what it hears of each alone

 private:
  void writeDatabase();
  void writeMixture();

  std::vector<std::vector<double>> responses;
};
