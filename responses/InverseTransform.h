#pragma once

#include <complex>
#include <cstddef>
#include <string>
#include <vector>

/// Impulse responses got back from transfer functions.
struct InverseTransforms {
  std::size_t length = 0;     ///< samples of each
  std::size_t lead = 0;       ///< of these, how many lie before time 0
  std::vector<float> values;  ///< one response after the other
};

/// The impulse responses of transfer functions H of N frequencies each, 0 to half the sampling
/// rate: the 2 · (N − 1) samples of the inverse transform, whose last `lead` samples are moved to
/// the front as the time before 0.
///
/// `lead` is an eighth of the length if, over all responses, the last eighth holds more than twice
/// the energy of the eighth before it: a response that begins after time 0 has decayed there, so
/// this is what comes before time 0. Otherwise it is 0. Responses relative to a microphone
/// (referenceMicrophone above 0) reach as far before time 0 as after it: then it is half of the
/// length.
///
/// Throws DataError, which calls the data `name`, if N is below 2.
InverseTransforms inverseTransforms(const std::string& name,
                                    const std::vector<std::complex<float>>& H, std::size_t N,
                                    int referenceMicrophone);
