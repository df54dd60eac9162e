#pragma once

#include <cstddef>
#include <vector>

#include "responses/Responses.h"

/// Gaussian noise of a level in dB (0: RMS 1), independent at each microphone and sample.
std::vector<float> microphoneNoise(std::size_t values, double level, unsigned seed);

/// Noise with a spectrum that falls towards high frequencies like speech's, from up to 48 places
/// around the array at once, independent between them: `length` samples of every microphone,
/// microphones in turn, of a level in dB on average over them.
std::vector<float> diffuseNoise(const Responses& responses, std::size_t length, double level,
                                unsigned seed);
