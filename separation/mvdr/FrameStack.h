#pragma once

#include <algorithm>

namespace Separation {

/// The frames that a filter takes together: the newest one and earlier ones. What they hold of a
/// source's echoes is known from it already, so that the filter can be longer than a frame without
/// a sample of more delay.
struct FrameStack {
  int frames = 1;   ///< D, the newest one included
  int apart = 1;    ///< frames from one to the next
  int advance = 1;  ///< samples from frame to frame

  /// D frames that begin half a frame apart, as nearly as the advance allows: neighbours have too
  /// much in common, those without common samples leave echoes out.
  static FrameStack halfOverlapping(int frames, int length, int advance) {
    return {frames, std::max(1, (length + advance) / (2 * advance)), advance};
  }

  /// Frames that are to be remembered beside the newest.
  int remembered() const { return (frames - 1) * apart; }
};

}  // namespace Separation
