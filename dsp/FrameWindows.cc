#include "dsp/FrameWindows.h"

#include <cmath>
#include <cstddef>
#include <numbers>

namespace Audio {

FrameWindows equalWindows(WindowType type, int length) {
  const std::vector<float> window = makeWindow(type, length);
  return {window, window};
}

FrameWindows lowDelayWindows(int length, int span) {
  FrameWindows windows;
  const double L = length;
  const double S = span;
  for (int n = 0; n < length; ++n) {
    const double m = n - (L - S);
    const double fall = std::sin(std::numbers::pi * m / S);
    const double analysis = m < S / 2.0 ? std::sin(std::numbers::pi * n / (2.0 * L - S)) : fall;
    windows.analysis.push_back(static_cast<float>(analysis));
    if (m < 0.0) continue;
    // At m = 0 the Hann window is zero, and with S = L the divisor as well.
    windows.synthesis.push_back(m == 0.0 ? 0.0F : static_cast<float>(fall * fall / analysis));
  }
  return windows;
}

}  // namespace Audio
