#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>

namespace Separation {

/// The level of a recording as it is heard so far, and the gain that brings it to a stated one, so
/// that constants inside a method stand in the same relation to soft and loud recordings.
///
/// With p_n, the mean of |X|² over the microphones and bins of the n-th frame that is not silent,
/// the level is P ← (1 − w) · P + w · min(p_n, RISE · P) with w = max(1/n, 1/FRAMES): the mean at
/// first, a running one later (the recursive estimate of mean square level of sound level meters,
/// IEC 61672, begun without its transient). The bound keeps a damaged frame of enormous values from
/// making the rest of the recording soft. The gain is √(POWER / P), and 1 before any sound.
class Level {
 public:
  static constexpr double POWER = 1e6;      ///< to which gain() brings the mean of |X|²
  static constexpr double FRAMES = 1000.0;  ///< time constant of the running mean
  static constexpr double RISE = 100.0;     ///< most that one frame counts, relative to P

  /// Takes a frame of `count` values. One that is silent or not finite does not count.
  void add(const std::complex<float>* spectra, std::size_t count);

  float gain() const;

 private:
  double P = 0.0;
  std::int64_t n = 0;
};

}  // namespace Separation
