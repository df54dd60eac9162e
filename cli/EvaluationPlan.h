#pragma once

#include <optional>
#include <string>
#include <vector>

#include "responses/ArrayGeometry.h"
#include "responses/Room.h"
#include "scene/Scene.h"

/// What `evaluate` goes through: every combination of the lists below. As a file (JSON):
///   {"dry": ["speech.wav", …], "scenes": [SCENE, …], "arrays": [ARRAY, …], "rooms": [ROOM, …],
///    "noises": [NOISE, …], "databases": [DATABASE, …],
///    "methods": [METHOD, …], "rate": 16000}
///   SCENE: as a scene file has it; its sources emit the dry files in this order
///   ARRAY: "name", and one of "circular": [count, radius], "linear": [count, spacing],
///          "microphones": "positions.json", "responses": "measured.sofa"
///   ROOM: "name"; "size": [x, y, z] with "t60" or "absorption": [one or six]; without: no echoes
///   NOISE: "name"; "sensor", "diffuse": dB by which the sources are louder; absent: none
///   DATABASE: "name"; "responses": "free field" or "own", those of array and room; "length" in
///             samples, "reference" microphone from 1, "error": degrees by which all azimuths told
///             are too large, "grid": degrees between responses that the places told lie half way
///             between, "latency": milliseconds, as of `separate`
///   METHOD: a text as evaluatedMethod takes it
/// Names of files are relative to the plan's folder.
struct EvaluationPlan {
  struct Array {
    std::string name;
    Positions microphones;  ///< alone in the air; or …
    std::string responses;  ///< … a file of measured ones
  };
  struct Room {
    std::string name;
    std::optional<RoomDescription> description;
  };
  struct Noise {
    std::string name;
    std::optional<double> sensor;
    std::optional<double> diffuse;
  };
  struct Database {
    std::string name;
    bool isFreeField = false;
    int length = 0;     ///< 0: as tfdb chooses it
    int reference = 0;  ///< 0: none
    double error = 0.0;
    double latency = 0.0;  ///< of the separation, in ms; 0: the frame
    double grid = 0.0;     ///< 0: there are responses at the places told
  };

  /// Throws DataError naming the file, the place in it, what stands there and what was expected.
  static EvaluationPlan read(const std::string& path);

  std::vector<std::string> dry;
  std::vector<Audio::Scene> scenes;
  std::vector<Array> arrays;
  std::vector<Room> rooms;
  std::vector<Noise> noises;
  std::vector<Database> databases;
  std::vector<std::string> methods;  ///< empty: the plan names none
  int rate = 16000;                  ///< Hz
};
