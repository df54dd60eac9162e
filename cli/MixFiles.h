#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "audio/WavWriter.h"

/// The files of a mixture and of the images it is the sum of, all of one length, as 32-bit floating
/// point. They appear under their names together, when all of them are complete.
class MixFiles {
 public:
  MixFiles(std::size_t microphoneCount, int samplingRate, bool overwrite);

  /// Adds an image, microphones in turn, to the mixture and to the files. The mixture is the sum in
  /// single precision in the order of the calls. Throws DataError.
  void add(const std::string& path, const std::vector<float>& image);

  /// Samples of each microphone so far.
  std::size_t length() const { return mixture.size() / microphones; }

  /// The mixture's largest modulus, 1 being full scale.
  float peak() const;

  /// Writes the mixture, brings every image to its length with silence and names the files. Throws
  /// DataError.
  void finish(const std::string& path);

 private:
  std::size_t microphones;
  Audio::WavFormat format;
  bool force;
  std::vector<float> mixture;
  std::vector<Audio::WavWriter> images;
};
