#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "geometry/Direction.h"
#include "scene/TimeRange.h"

namespace Audio {

/// Where a source is at one time of its track.
struct TrackPoint {
  double t = 0;              ///< seconds
  bool isDirection = false;  ///< given as a direction, which is then interpolated as such
  BF::Direction direction;
  BF::Location position;
};

/// A source of a scene, standing still or moving, present always or at times.
struct SceneSource {
  int id = 0;
  std::vector<TrackPoint> track;  ///< one point at least, times strictly increasing
  bool always = true;             ///< no "active" was given
  std::vector<TimeRange> active;  ///< in order; they neither overlap nor touch

  /// Whether t (seconds) lies in one of the active ranges: begin ≤ t < end.
  bool isActive(double t) const;

  /// Between two points of the track: if both are directions, azimuth (the short way round),
  /// elevation and distance change evenly; else the point moves along a straight line. Before the
  /// first point and after the last one the source stays there.
  BF::Location positionAt(double t) const;
};

/// The ranges in order, those that touch or overlap made one.
std::vector<TimeRange> merged(std::vector<TimeRange> ranges);

/// How many sources are active from a time in seconds on.
struct SceneCrowd {
  double time = 0;
  std::size_t active = 0;
};

/// A source's place at one time.
struct PlacedSource {
  int id = 0;
  BF::Location position;
};

/// Somebody whom a list of turns names, and where.
struct Speaker {
  std::string name;
  SceneSource source;
};

/// The sources of a recording over time, as a scene file (JSON) states them:
///   {"sources": [SOURCE, …], "noise": [SOURCE, …]}
///   SOURCE: "id": whole number from 0, unlike any other; and one of
///             "azimuth": degrees, with optional "elevation" (default 0) and "distance" (default 1)
///             "position": [x, y, z]
///             "track": [{"t": seconds, and a direction or position as above}, …], and beside it
///             optional "distance", that of its directions without one
///           optional "active": [[begin, end], …] in seconds; absent: always
/// Angles, metres and coordinates lie within ±10⁶, times within ±10⁹ s. No more than MAX_AT_ONCE
/// sources are active at once, noise sources included.
class Scene {
 public:
  static constexpr std::size_t MAX_AT_ONCE = 256;
  static constexpr std::size_t MAX_FILE_SIZE = std::size_t{64} << 20;  ///< bytes

  /// Reads a scene file. Throws DataError naming the file, the place in it (such as
  /// /sources/0/azimuth), what stands there and what was expected.
  static Scene read(const std::string& path);

  /// The same for a text; name stands for the file in messages.
  static Scene parse(const std::string& text, const std::string& name);

  /// The same for a document that is read already.
  static Scene fromDocument(const nlohmann::json& document, const std::string& name);

  /// Reads who speaks when from an RTTM file (NIST, "The 2009 Rich Transcription meeting
  /// recognition evaluation plan", appendix A): its lines of type SPEAKER, of one recording. Each
  /// entry of `speakers` becomes a target, in their order: what it says of the id and the place
  /// stays, the turns of that name become its active ranges. `recording` names one of those in the
  /// file; empty: the only one. Throws DataError naming the file, the line, what stands there and
  /// what was expected: also where somebody speaks who is not in `speakers`.
  static Scene readRttm(const std::string& path, const std::vector<Speaker>& speakers,
                        const std::string& recording = "");

  /// The same for a text; name stands for the file in messages.
  static Scene parseRttm(const std::string& text, const std::string& name,
                         const std::vector<Speaker>& speakers, const std::string& recording = "");

  /// From a table of the columns id, start, end, azimuth[, elevation[, distance]], separated by
  /// commas, after a line of titles that begins with "id" or not: where a source is from start to
  /// end, in seconds. Throws DataError naming the line.
  static Scene parseCsv(const std::string& text, const std::string& name);

  /// Of sources whose ids differ. Throws DataError when more than MAX_AT_ONCE are active at once.
  static Scene of(std::vector<SceneSource> targets, std::vector<SceneSource> noises,
                  const std::string& name);

  const std::vector<SceneSource>& sources() const { return targets; }
  const std::vector<SceneSource>& noiseSources() const { return noises; }

  /// Targets that are active at time t (seconds), in the file's order.
  std::vector<PlacedSource> targetsAt(double t) const;

  /// Noise sources that are active at time t; with inactiveAsNoise, the targets that are not active
  /// then follow.
  std::vector<PlacedSource> noiseAt(double t, bool inactiveAsNoise) const;

  /// How many sources are active, noise sources included: from time 0 on, and from each later time
  /// at which that changes, in order.
  std::vector<SceneCrowd> crowds() const;

  /// Throws DataError, naming the file, when more than MAX_AT_ONCE sources are listed at a time:
  /// those that are active and, with inactiveAsNoise, all other targets.
  void requireFewAtOnce(const std::string& name, bool inactiveAsNoise) const;

 private:
  std::vector<SceneSource> targets;
  std::vector<SceneSource> noises;
};

}  // namespace Audio
