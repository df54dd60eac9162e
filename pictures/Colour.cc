#include "pictures/Colour.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

/// A linear-light value 0 … 1 as sRGB stores it.
std::uint8_t stored(double linear) {
  const double v = std::clamp(linear, 0.0, 1.0);
  const double s = v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1.0 / 2.4) - 0.055;
  return static_cast<std::uint8_t>(std::lround(255.0 * s));
}

/// CIE L*a*b* for the white point D65, by way of XYZ.
Colour fromLab(double L, double a, double b) {
  const auto inverse = [](double t) {
    return t > 6.0 / 29.0 ? t * t * t : 3.0 * 36.0 / 841.0 * (t - 4.0 / 29.0);
  };
  const double y = (L + 16.0) / 116.0;
  const double X = 0.95047 * inverse(y + a / 500.0);
  const double Y = inverse(y);
  const double Z = 1.08883 * inverse(y - b / 200.0);
  return {stored(3.2406 * X - 1.5372 * Y - 0.4986 * Z),
          stored(-0.9689 * X + 1.8758 * Y + 0.0415 * Z),
          stored(0.0557 * X - 0.2040 * Y + 1.0570 * Z)};
}

}  // namespace

std::string Colour::hex() const { return fmt::format("#{:02x}{:02x}{:02x}", red, green, blue); }

Colour scaleColour(double share) {
  const double t = std::isnan(share) ? 0.0 : std::clamp(share, 0.0, 1.0);
  const double lightness = 98.0 - 86.0 * t;
  const double hue = (100.0 - 175.0 * t) * std::numbers::pi / 180.0;
  const double chroma = 8.0 + 57.0 * std::sin(std::numbers::pi * std::pow(t, 0.8));
  return fromLab(lightness, chroma * std::cos(hue), chroma * std::sin(hue));
}
