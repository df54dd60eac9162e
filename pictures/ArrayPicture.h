#pragma once

#include <string>
#include <vector>

#include "pictures/Drawing.h"

/// What a picture of a microphone array shows: its microphones seen from above.
struct ArrayPicture {
  struct Microphone {
    double x = 0.0;    ///< metres, to the front
    double y = 0.0;    ///< metres, to the left
    std::string name;  ///< what stands at it, such as the channel
  };

  std::string title;
  std::string subtitle;
  std::vector<Microphone> microphones;

  /// Front up and left at the left, in a square of this many pixels below the title, with a scale.
  Drawing drawn(int width) const;
};
