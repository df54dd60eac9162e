#pragma once

#include <string>
#include <vector>

#include "geometry/Direction.h"
#include "geometry/TransformFunctionDatabase.h"

/// Positions of a database that a picture shows, one for each direction.
struct DirectionSet {
  std::vector<int> positions;             ///< their numbers in the database
  std::vector<BF::Direction> directions;  ///< theirs

  /// Those that stand around the array at one elevation, by azimuth: the ring nearest to an
  /// elevation (degrees), of the distances nearest to the one given (metres). Directions count to
  /// it that differ by half a degree in elevation; with fewer than 12 of them, as in databases of
  /// scattered directions, those that differ by up to 2.5 or 5. Throws DataError when even then
  /// they are fewer than 3.
  static DirectionSet ring(const BF::TransformFunctionDatabase& database, double elevation,
                           double distance);

  /// All directions, of the distances nearest to the one given (metres), by elevation and azimuth.
  /// Throws DataError unless they are at least 20 degrees apart in elevation.
  static DirectionSet sphere(const BF::TransformFunctionDatabase& database, double distance);

  /// "72 directions at elevation 0°, 1.4 m", with ranges where they differ.
  std::string text() const;
};
