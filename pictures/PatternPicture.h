#pragma once

#include <vector>

#include "pictures/Drawing.h"
#include "pictures/PatternCaption.h"

/// Directional patterns at some frequencies and as a mean: a panel for each separated source.
struct PatternPicture : PatternCaption {
  struct Panel {
    std::size_t source = 0;                   ///< the separated one's number in sources
    std::vector<std::vector<double>> curves;  ///< dB, a row per curve, a value per direction
    std::vector<double> sourceGains = {};     ///< dB, of the mean, towards each of the sources
  };

  std::vector<double> azimuths;     ///< degrees, increasing
  std::vector<double> frequencies;  ///< Hz, of the curves but the last, which is a mean
  std::vector<Panel> panels;

  /// The panels as polar diagrams seen from above, front up and left at the left. Throws DataError
  /// when the width in pixels is too small for them.
  Drawing drawn(int width) const;
};
