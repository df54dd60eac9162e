#pragma once

#include <string>
#include <vector>

#include "pictures/DirectionRing.h"
#include "pictures/Drawing.h"

/// What a picture of directional patterns shows: a panel for each separated source.
struct PatternPicture {
  /// A source, and where it really is.
  struct Source {
    int id = 0;
    BF::Direction direction;
  };
  struct Panel {
    std::size_t source = 0;                   ///< the separated one's number in sources
    std::vector<std::vector<double>> curves;  ///< dB, a row per curve, a value per direction
  };

  std::string title;
  std::string subtitle;
  std::vector<double> azimuths;     ///< degrees, increasing
  std::vector<double> frequencies;  ///< Hz, of the curves but the last, which is that of all
  std::vector<Source> sources;
  std::vector<Panel> panels;

  /// The panels as polar diagrams seen from above, front up and left at the left. Throws DataError
  /// when the width in pixels is too small for them.
  Drawing drawn(int width) const;
};
