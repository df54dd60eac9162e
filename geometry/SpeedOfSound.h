#pragma once

namespace BF {

/// Speed of sound in air at 20 °C, in m/s.
constexpr double SPEED_OF_SOUND = 343.0;

}  // namespace BF
