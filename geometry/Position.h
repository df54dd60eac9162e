#pragma once

#include <array>
#include <cmath>

#include "geometry/Location.h"

namespace BF {

/// A point as files and arrays of numbers hold it: metres to the front, to the left and up.
using Position = std::array<double, 3>;

/// The same point as the engine holds it.
inline Location asLocation(const Position& p) { return Location(p[0], p[1], p[2]); }
/// The same point as files hold it.
inline Position asPosition(const Location& p) { return {p.x, p.y, p.z}; }

/// The distance between two points. By std::hypot, which can differ in the last bit from the square
/// root that the nearest-position search takes: responses in files are computed from it.
inline double distance(const Position& a, const Position& b) {
  return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

}  // namespace BF
