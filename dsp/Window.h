#pragma once

#include <string>
#include <vector>

namespace Audio {

/// Shapes of analysis and synthesis windows, all periodic in the frame length L:
///   Hann         ½ − ½ · cos(2πn/L)
///   Hamming      0.54 − 0.46 · cos(2πn/L)
///   Sine         sin(πn/L), the square root of Hann
///   Rectangular  1
enum class WindowType { Hann, Hamming, Sine, Rectangular };

/// The type named "HANN", "HAMMING", "SINE" or "RECTANGULAR". Throws DataError for other names.
WindowType windowNamed(const std::string& name);

/// The window's values for n = 0 … length − 1.
std::vector<float> makeWindow(WindowType type, int length);

}  // namespace Audio
