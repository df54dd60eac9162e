#pragma once

#include <set>
#include <string>
#include <vector>

#include "pictures/Colour.h"

/// The points of a PNG image, decoded.
struct Image {
  int width = 0;
  int height = 0;
  std::vector<Colour> points;  ///< row by row

  const Colour& at(int x, int y) const {
    return points[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                  static_cast<std::size_t>(x)];
  }
};

/// Reads a PNG file; throws std::runtime_error for what is none.
Image imageOf(const std::string& path);

/// Relative luminance, 0 (black) to 1 (white).
double luminance(const Colour& colour);

/// Every text that an SVG picture shows; throws std::runtime_error unless it is well-formed XML
/// with the root svg.
std::multiset<std::string> textsOf(const std::string& svg);
