#pragma once

namespace BF {

/// A point in the frame of the transfer-function database, in metres: x to the front, y to the
/// left, z up, when the database came from the bundled file library. Coordinates are never
/// converted.
class Location {
 public:
  /// The origin.
  Location() = default;

  /// The point with these coordinates.
  Location(double xCoordinate, double yCoordinate, double zCoordinate)
      : x(xCoordinate), y(yCoordinate), z(zCoordinate) {}

  double x = 0.0;  ///< metres to the front
  double y = 0.0;  ///< metres to the left
  double z = 0.0;  ///< metres up
};

/// Where a microphone stands.
class MicLocation : public Location {
 public:
  using Location::Location;  ///< from x, y and z
};

/// Where a sound source stands, and which one it is.
class SourceLocation : public Location {
 public:
  /// A source at these coordinates; identifier and isTarget become id and flag.
  SourceLocation(double xCoordinate, double yCoordinate, double zCoordinate, int identifier,
                 bool isTarget)
      : Location(xCoordinate, yCoordinate, zCoordinate), id(identifier), flag(isTarget) {}

  int id;     ///< engines that keep state per source match sources by this value
  bool flag;  ///< set by whoever lists the source: true for a target, false for a noise source
};

}  // namespace BF
