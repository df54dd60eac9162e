#pragma once

#include <vector>

/// The multiples of a round step (1, 2 or 5 times a power of ten) in first … last, at most `most`
/// of them, most ≥ 2. None unless first < last and both are finite.
std::vector<double> ticks(double first, double last, int most);
