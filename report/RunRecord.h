#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "audio/SeparatedFiles.h"
#include "scene/Scene.h"

/// How a separation was made, as "run.json" beside its files says it.
struct RunRecord {
  static constexpr const char* NAME = Audio::SeparatedFiles::RUN_RECORD;

  std::string version;    ///< of the program
  std::string recording;  ///< absolute paths; empty: none
  std::string database;
  std::string responses;
  std::string channels;  ///< of the recording, as "1-4"; empty: all
  std::string method;
  std::vector<std::pair<std::string, std::string>>
      parameters;   ///< of the method, defaults included
  int length = 0;   ///< samples per frame
  int advance = 0;  ///< samples from frame to frame
  std::string window;
  int latencySamples = 0;  ///< of a live separation, from block to block as long as the advance
  int samplingRate = 0;    ///< Hz
  int microphones = 0;
  int reference = 1;  ///< microphone that the sources sound as, from 1
  int passes = 1;     ///< over the recording, refinement included
  int refinePasses = 0;
  double duration = 0.0;  ///< seconds of the recording
  double elapsed = 0.0;   ///< seconds that the separation took
  std::vector<std::string> warnings;
  Audio::Scene scene;

  double latency() const {
    return 1.0 * latencySamples / samplingRate;
  }  ///< seconds of a live separation

  /// The file's text: one JSON object.
  std::string json() const;

  /// The folder's record, nothing if it has none. Throws DataError naming the file and what is
  /// wrong with it.
  static std::optional<RunRecord> read(const std::string& folder);
};

/// A separated source, as a folder's "timeline.json" lists it.
struct RunSource {
  int id = 0;
  std::string path;
  std::vector<std::pair<double, double>> active;  ///< begin and end in seconds
};

/// The sources of a folder's timeline, whose files stand in the folder itself. Throws DataError
/// naming the file and what is wrong with it.
std::vector<RunSource> sourcesOfRun(const std::string& folder);
