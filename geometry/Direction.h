#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>

#include "geometry/Location.h"

namespace BF {

/// Radians in degrees.
inline double degrees(double radians) { return radians * 180.0 / std::numbers::pi; }
/// Degrees in radians.
inline double radians(double degrees) { return degrees * std::numbers::pi / 180.0; }

/// A point seen from the origin: azimuth counter-clockwise from x and elevation up from the
/// horizontal plane in degrees, distance in metres.
struct Direction {
  double azimuth = 0.0;    ///< degrees
  double elevation = 0.0;  ///< degrees
  double distance = 1.0;   ///< metres
};

/// The point in a direction:
///   x = d · cos(elevation) · cos(azimuth), y = d · cos(elevation) · sin(azimuth),
///   z = d · sin(elevation).
inline Location locationOf(const Direction& direction) {
  const double a = radians(direction.azimuth);
  const double e = radians(direction.elevation);
  const double d = direction.distance;
  return {d * std::cos(e) * std::cos(a), d * std::cos(e) * std::sin(a), d * std::sin(e)};
}

/// The direction of a point: azimuth −180 … 180, elevation −90 … 90.
inline Direction directionOf(const Location& p) {
  return {degrees(std::atan2(p.y, p.x)), degrees(std::atan2(p.z, std::hypot(p.x, p.y))),
          std::hypot(p.x, p.y, p.z)};
}

/// The angle between two points seen from the origin, in degrees; 0 if one of them is there.
inline double angleBetween(const Location& a, const Location& b) {
  const double product = std::hypot(a.x, a.y, a.z) * std::hypot(b.x, b.y, b.z);
  if (product == 0.0) return 0.0;
  const double cosine = (a.x * b.x + a.y * b.y + a.z * b.z) / product;
  return degrees(std::acos(std::clamp(cosine, -1.0, 1.0)));
}

}  // namespace BF
