#pragma once

#include <string>
#include <vector>

#include "geometry/Direction.h"
#include "geometry/TransformFunctionDatabase.h"

/// The positions of a database that stand around the array at one elevation, by azimuth, one for
/// each azimuth.
struct DirectionRing {
  std::vector<int> positions;             ///< their numbers in the database
  std::vector<BF::Direction> directions;  ///< theirs

  /// The ring nearest to an elevation (degrees), of the distances nearest to the one given
  /// (metres). Directions count to it that differ by half a degree in elevation; with fewer than
  /// 12 of them, as in databases of scattered directions, those that differ by up to 2.5 or 5.
  /// Throws DataError when even then they are fewer than 3.
  static DirectionRing of(const BF::TransformFunctionDatabase& database, double elevation,
                          double distance);

  /// "72 directions at elevation 0°, 1.4 m", with ranges where they differ.
  std::string text() const;
};
