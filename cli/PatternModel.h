#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bf/BF.h"
#include "pictures/DirectionSet.h"
#include "pictures/PatternMap.h"
#include "pictures/PatternPicture.h"
#include "scene/Scene.h"

/// What a picture of directional patterns is to show.
struct PatternRequest {
  std::string database;  ///< a file
  std::string scene;     ///< its name in messages and in the picture
  std::string method = "NULL";
  std::vector<double> frequencies;                ///< Hz; empty: the usual ones
  std::optional<std::pair<double, double>> band;  ///< Hz that the mean is over; absent: all
  double elevation = 0.0;                         ///< degrees: the nearest that the database has
  bool isMap = false;                             ///< all directions instead
};

/// The separation of a scene as its matrices say it: how loud a method lets each direction of a
/// database through, at one time after the other.
class PatternModel {
 public:
  /// Reads the database. Throws DataError, also for frequencies that it does not cover.
  PatternModel(PatternRequest patternRequest, Audio::Scene patternScene);

  /// Moves to a time in seconds. Throws DataError when no source is active then, or when the
  /// database has no ring of directions there, or for a map no sphere.
  void setTime(double seconds);

  const PatternRequest& request() const { return wanted; }
  double time() const { return moment; }
  /// The method, and how its matrices were made where that is not the whole truth about it.
  std::string methodText() const;
  const DirectionSet& shown() const { return directions; }
  const std::vector<BF::SourceLocation>& sources() const { return active; }

  /// The mean gain over the band of the output of a source, by its number in sources(), towards
  /// another's place, in dB.
  double gain(std::size_t of, std::size_t towards) const;

  /// A panel for each target; targets and interferers of the time.
  PatternPicture picture() const;
  PatternMap map() const;

 private:
  PatternCaption caption() const;
  double bandGain(const std::vector<double>& powerGains) const;
  std::vector<std::size_t> bins() const;
  double binWidth() const;
  std::string bandText() const;

  PatternRequest wanted;
  Audio::Scene scene;
  std::unique_ptr<BF::BF> engine;
  double samplingRate = 0.0;
  double moment = 0.0;
  std::vector<BF::SourceLocation> active;
  DirectionSet directions;
};
