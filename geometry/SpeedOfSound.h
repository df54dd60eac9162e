#pragma once

namespace BF {

constexpr double SPEED_OF_SOUND = 343.0;  ///< in air where nothing says otherwise, m/s

}  // namespace BF
