#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "geometry/Position.h"

/// A room between the planes 0 and size[a] of each axis a, with walls of one absorption each.
struct ShoeBox {
  std::array<double, 3> size = {};  ///< metres
  std::array<double, 6> reflection =
      {};  ///< of the pressure, at x = 0, x = size, y = 0, … z = size
};

/// One mirror image of a source.
struct ImageSource {
  BF::Position place = {};
  double gain = 0.0;  ///< product of the reflection coefficients on its way
};

/// The images of a source that are within `reach` metres of a listener, the source itself among
/// them (J. B. Allen, D. A. Berkley: Image method for efficiently simulating small-room acoustics,
/// J. Acoust. Soc. Am. 65, 1979). Each coordinate of an image is 2nL ± s; images without gain are
/// left out.
///
/// jitter: every image but the source itself is moved by up to so many metres along each axis, by
/// random numbers that depend on the image and on the seed alone. This breaks up the regular order
/// of images whose echoes sweep (E. De Sena et al.: On the modeling of rectangular geometries in
/// room acoustic simulations, IEEE/ACM Trans. Audio Speech Lang. Process. 23, 2015).
std::vector<ImageSource> imagesOf(const ShoeBox& room, const BF::Position& source,
                                  const BF::Position& listener, double reach, double jitter = 0.0,
                                  unsigned seed = 1);

/// A sum of pulses at any times, as samples: each pulse is a sinc function under a Hann window of
/// 8 ms (P. M. Peterson: Simulating the response of multiple microphones to a single acoustic
/// source in a reverberant room, J. Acoust. Soc. Am. 80, 1986).
///
/// The pulses go onto a grid eight times as fine by cubic interpolation, which is right to −60 dB
/// up to 0.9 of half the sampling rate, and all share one filter. So many of them cost little.
class PulseTrain {
 public:
  /// Pulses later than `samples` are left out.
  PulseTrain(int rate, std::size_t samples);

  /// time: in samples, 0 or more.
  void add(double time, double value);
  bool empty() const { return pulses == 0; }

  /// The samples, and lead() of them before time 0, where early pulses begin to sound.
  std::vector<double> samples() const;
  std::size_t lead() const { return reach; }

 private:
  std::size_t reach;  // of a pulse to each side, in samples
  std::size_t length;
  std::size_t pulses = 0;
  std::vector<double> grid;
};
