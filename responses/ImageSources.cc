#include "responses/ImageSources.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace {

using BF::Position;
using std::numbers::pi;

constexpr double PULSE = 0.008;   // seconds
constexpr std::size_t FINER = 8;  // grid points per sample

/// One coordinate of images: where, how loud, and which image it is.
struct Coordinate {
  double place;
  double gain;
  int number;  // 0: the source's own
};

// Images at 2nL + s, reflected |n| times by either wall, and at 2nL − s, reflected |n − 1| times by
// the wall at 0 and |n| times by the other; those within reach of the listener.
std::vector<Coordinate> coordinates(double L, double s, double listener, double wall0, double wallL,
                                    double reach) {
  std::vector<Coordinate> result;
  const int most = static_cast<int>(std::ceil(reach / (2.0 * L))) + 1;
  for (int n = -most; n <= most; ++n) {
    for (const int q : {0, 1}) {
      const double place = 2.0 * n * L + (1 - 2 * q) * s;
      const double gain = std::pow(wall0, std::abs(n - q)) * std::pow(wallL, std::abs(n));
      if (std::abs(place - listener) > reach || gain == 0.0) continue;
      result.push_back({place, gain, 2 * n - q});
    }
  }
  return result;
}

/// Bits that look random and depend on the argument alone (SplitMix64).
std::uint64_t mixed(std::uint64_t x) {
  x += 0x9e3779b97f4a7c15U;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9U;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebU;
  return x ^ (x >> 31);
}

/// Moves an image by up to jitter along each axis.
void scatter(Position& place, const std::array<int, 3>& numbers, double jitter, unsigned seed) {
  std::uint64_t state = mixed(seed);
  for (const int number : numbers) state = mixed(state ^ static_cast<std::uint32_t>(number));
  for (double& x : place) {
    state = mixed(state);
    x += jitter * (std::ldexp(static_cast<double>(state >> 11), -52) - 1.0);
  }
}

}  // namespace

std::vector<ImageSource> imagesOf(const ShoeBox& room, const Position& source,
                                  const Position& listener, double reach, double jitter,
                                  unsigned seed) {
  std::array<std::vector<Coordinate>, 3> axes;
  for (std::size_t a = 0; a < 3; ++a) {
    axes[a] = coordinates(room.size[a], source[a], listener[a], room.reflection[2 * a],
                          room.reflection[2 * a + 1], reach);
  }
  const auto square = [](double x) { return x * x; };
  std::vector<ImageSource> images;
  for (const Coordinate& x : axes[0]) {
    const double leftX = square(reach) - square(x.place - listener[0]);
    for (const Coordinate& y : axes[1]) {
      const double leftY = leftX - square(y.place - listener[1]);
      if (leftY < 0.0) continue;
      for (const Coordinate& z : axes[2]) {
        if (square(z.place - listener[2]) > leftY) continue;
        ImageSource image = {{x.place, y.place, z.place}, x.gain * y.gain * z.gain};
        const bool own = x.number == 0 && y.number == 0 && z.number == 0;
        if (jitter > 0.0 && !own) {
          scatter(image.place, {x.number, y.number, z.number}, jitter, seed);
        }
        images.push_back(image);
      }
    }
  }
  return images;
}

PulseTrain::PulseTrain(int rate, std::size_t samples)
    : reach(static_cast<std::size_t>(std::max(2L, std::lround(0.5 * PULSE * rate)))),
      length(samples),
      grid(FINER * samples + 4) {}

// On the fine grid point i is time (i − 1) / FINER: room for the point before a pulse at time 0.
// The four points around a pulse get the weights of Lagrange's cubic interpolation.
void PulseTrain::add(double time, double value) {
  const double fine = time * static_cast<double>(FINER);
  if (!(fine < static_cast<double>(FINER * length))) return;
  const auto i = static_cast<std::size_t>(fine);
  const double f = fine - static_cast<double>(i);
  grid[i] += value * (-f * (f - 1.0) * (f - 2.0) / 6.0);
  grid[i + 1] += value * ((f + 1.0) * (f - 1.0) * (f - 2.0) / 2.0);
  grid[i + 2] += value * (-f * (f + 1.0) * (f - 2.0) / 2.0);
  grid[i + 3] += value * (f * (f + 1.0) * (f - 1.0) / 6.0);
  ++pulses;
}

// y(n) = Σ_i grid(i) · w(n − t) · sinc(n − t), t = (i − 1) / FINER, w(x) = ½ + ½ · cos(πx / reach).
std::vector<double> PulseTrain::samples() const {
  const std::size_t taps = 2 * reach + 1;
  std::vector<double> kernels(FINER * taps);  // of each part of a sample by which pulses are late
  for (std::size_t part = 0; part < FINER; ++part) {
    for (std::size_t tap = 0; tap < taps; ++tap) {
      const double x = static_cast<double>(tap) - static_cast<double>(reach) -
                       static_cast<double>(part) / static_cast<double>(FINER);
      if (std::abs(x) > static_cast<double>(reach)) continue;
      const double window = 0.5 + 0.5 * std::cos(pi * x / static_cast<double>(reach));
      kernels[part * taps + tap] = x == 0.0 ? 1.0 : window * std::sin(pi * x) / (pi * x);
    }
  }
  // Grid point 0 is one point before time 0: one whole sample earlier, late by all parts but one.
  std::vector<double> result(length + 1 + taps);
  for (std::size_t i = 0; i < grid.size(); ++i) {
    if (grid[i] == 0.0) continue;
    const std::size_t late = i + FINER - 1;
    const double* kernel = kernels.data() + late % FINER * taps;
    double* to = result.data() + late / FINER;
    for (std::size_t tap = 0; tap < taps; ++tap) to[tap] += grid[i] * kernel[tap];
  }
  result.erase(result.begin());  // that whole sample
  return result;
}
