#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "pictures/Colour.h"

/// An image of coloured points, row by row from the top.
class Raster {
 public:
  /// A white image. Both counts must be above 0.
  Raster(std::size_t columnCount, std::size_t rowCount)
      : columns(columnCount), rows(rowCount), points(columnCount * rowCount, WHITE) {}

  Colour& at(std::size_t column, std::size_t row) { return points[row * columns + column]; }

  /// The image as the bytes of a PNG file. Throws DataError when it is too large for one.
  std::string png() const;

 private:
  std::size_t columns;
  std::size_t rows;
  std::vector<Colour> points;
};
