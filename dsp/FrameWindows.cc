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
  const double F = S / 4.0;
  constexpr double PI = std::numbers::pi;
  for (int n = 0; n < length; ++n) {
    const double m = n - (L - S);
    const double analysis =
        n < L - F ? std::sin(PI * n / (2.0 * (L - F))) : std::cos(PI * (n - (L - F)) / (2.0 * F));
    windows.analysis.push_back(static_cast<float>(analysis));
    if (m < 0.0) continue;
    // At m = 0 the Hann window is zero, and with S = L the divisor as well.
    const double hann = std::pow(std::sin(PI * m / S), 2);
    windows.synthesis.push_back(m == 0.0 ? 0.0F : static_cast<float>(hann / analysis));
  }
  return windows;
}

}  // namespace Audio
