#pragma once

#include <vector>

#include "bf/BF.h"

/// |w(k) · h(k)|² for every bin k: the gain in power of the engine's separation row towards a
/// position of its database, by their numbers. Throws the engine's exceptions for numbers that are
/// not there.
std::vector<double> powerGains(const BF::BF& engine, int row, int position);

/// The mean over all bins, in dB; −∞ for none.
double broadbandGain(const std::vector<double>& powerGains);
