#pragma once

#include <cstdint>
#include <string>

/// A colour of the sRGB space.
struct Colour {
  std::uint8_t red = 0;
  std::uint8_t green = 0;
  std::uint8_t blue = 0;

  bool operator==(const Colour&) const = default;

  /// "#rrggbb"
  std::string hex() const;
};

inline constexpr Colour BLACK{0, 0, 0};
inline constexpr Colour WHITE{255, 255, 255};
inline constexpr Colour GREY{110, 110, 110};
inline constexpr Colour PALE{205, 205, 205};

/// A scale of colours from light yellow (share 0) over red and violet to dark blue (share 1). Its
/// lightness falls evenly, so that equal steps look equal and it keeps its order in grey print.
/// Shares outside 0 … 1 count as the nearer end.
Colour scaleColour(double share);
