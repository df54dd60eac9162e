#pragma once

#include <cmath>

namespace Audio {

/// A ratio of powers or energies, 0 or more, in dB; −∞ for 0.
inline double decibels(double powerRatio) { return 10.0 * std::log10(powerRatio); }

/// The ratio of powers that so many dB are.
inline double powerRatio(double decibels) { return std::pow(10.0, decibels / 10.0); }

/// The ratio of amplitudes that so many dB are.
inline double amplitudeRatio(double decibels) { return std::pow(10.0, decibels / 20.0); }

}  // namespace Audio
