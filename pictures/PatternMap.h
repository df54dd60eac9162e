#pragma once

#include <cstddef>
#include <vector>

#include "pictures/Drawing.h"
#include "pictures/PatternCaption.h"

/// Directional patterns over all directions around the array: a panel for each separated source.
struct PatternMap : PatternCaption {
  struct Panel {
    std::size_t source = 0;           ///< the separated one's number in sources
    std::vector<double> gains;        ///< dB, of the mean, a value per direction
    std::vector<double> sourceGains;  ///< dB, of the mean, towards each of the sources
  };

  std::vector<BF::Direction> directions;
  std::vector<Panel> panels;

  /// The panels as maps, each point in the colour of the direction nearest to it: azimuth from 180
  /// degrees at the left, as seen by who looks to the front, to −180, elevation upwards. Grey is
  /// what no direction is near. Throws DataError when the width in pixels is too small for them.
  Drawing drawn(int width) const;
};
