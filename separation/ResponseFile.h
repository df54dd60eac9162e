#pragma once

#include <string>

#include "separation/mvdr/ImpulseResponses.h"

/// The impulse responses of a SOFA file at a sampling rate, to which they are converted; those of
/// transfer functions are their inverse transforms. Positions are those that a separation takes.
/// Throws DataError.
Separation::ImpulseResponses readImpulseResponses(const std::string& path, int samplingRate);
