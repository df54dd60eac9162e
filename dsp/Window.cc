#include "dsp/Window.h"

#include <fmt/format.h>

#include <cmath>
#include <cstddef>
#include <numbers>

#include "dsp/DataError.h"

namespace Audio {

namespace {

double windowValue(WindowType type, int n, int length) {
  const double phase = 2.0 * std::numbers::pi * n / length;
  switch (type) {
    case WindowType::Hann:
      return 0.5 - 0.5 * std::cos(phase);
    case WindowType::Hamming:
      return 0.54 - 0.46 * std::cos(phase);
    case WindowType::Sine:
      return std::sin(phase / 2.0);
    case WindowType::Rectangular:
      break;
  }
  return 1.0;
}

}  // namespace

WindowType windowNamed(const std::string& name) {
  if (name == "HANN") return WindowType::Hann;
  if (name == "HAMMING") return WindowType::Hamming;
  if (name == "SINE") return WindowType::Sine;
  if (name == "RECTANGULAR") return WindowType::Rectangular;
  throw DataError(
      fmt::format("WINDOW is \"{}\", expected HANN, HAMMING, SINE or RECTANGULAR", name));
}

std::vector<float> makeWindow(WindowType type, int length) {
  std::vector<float> window(static_cast<std::size_t>(length));
  for (int n = 0; n < length; ++n) {
    window[static_cast<std::size_t>(n)] = static_cast<float>(windowValue(type, n, length));
  }
  return window;
}

}  // namespace Audio
