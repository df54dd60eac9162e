#pragma once

#include <cstddef>
#include <vector>

/// The late reverberation of a room, as a statistical tail behind each response: Gaussian noise
/// that falls by 60 dB in t60 seconds, independent between positions and microphones.
struct Reverberation {
  double t60 = 0.0;                  ///< seconds; 0: none
  double directToReverberant = 0.0;  ///< energy of the response over that of its tail, in dB
  unsigned seed = 1;

  /// The response with its tail, which begins 5 ms after the response's largest sample. rate: Hz;
  /// number: tells apart the responses of a set.
  std::vector<double> added(std::vector<double> response, int rate, std::size_t number) const;
};
