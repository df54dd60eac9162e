#include "responses/ArrayGeometry.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include "dsp/DataError.h"
#include "geometry/Direction.h"
#include "geometry/SpeedOfSound.h"

namespace {

using BF::distance;
using BF::Position;
using std::numbers::pi;

constexpr int MAX_MICROPHONES = 1024;
constexpr double MAX_POSITIONS = 1e6;
constexpr double MAX_DISTANCE = 1e4;   // metres
constexpr double MIN_DISTANCE = 0.01;  // metres between a source and a microphone

Position centreOf(const Positions& microphones) {
  Position centre = {0.0, 0.0, 0.0};
  for (const Position& p : microphones) {
    for (std::size_t c = 0; c < 3; ++c) centre[c] += p[c] / static_cast<double>(microphones.size());
  }
  return centre;
}

void requireLength(const char* option, double length, double longest) {
  if (length > 0.0 && length <= longest) return;  // false for NaN too
  throw DataError(
      fmt::format("{} is {} m, expected above 0 and up to {} m", option, length, longest));
}

void requireCount(const char* option, int count) {
  if (count >= 1 && count <= MAX_MICROPHONES) return;
  throw DataError(
      fmt::format("{} is {}, expected 1 to {} microphones", option, count, MAX_MICROPHONES));
}

std::string text(const Position& p) { return fmt::format("({:g}, {:g}, {:g})", p[0], p[1], p[2]); }

// The delays of all microphones must fit the half frame before and the half frame after the centre.
void requireCompact(const Positions& microphones, const Position& centre, const FrameShape& frame) {
  const double reach = 0.5 * frame.length / frame.rate * BF::SPEED_OF_SOUND;
  for (std::size_t m = 0; m < microphones.size(); ++m) {
    const double away = distance(microphones[m], centre);
    if (away < reach) continue;
    throw DataError(fmt::format(
        "microphone {} at {} m is {:.3g} m away from the array's centre, expected less than "
        "{:.3g} m, the way of sound in half a frame of {} samples at {} Hz",
        m + 1, text(microphones[m]), away, reach, frame.length, frame.rate));
  }
}

}  // namespace

Positions circularArray(int count, double radius) {
  requireCount("--circular: COUNT", count);
  requireLength("--circular: RADIUS", radius, MAX_DISTANCE);
  Positions microphones;
  for (int i = 0; i < count; ++i) {
    const double azimuth = 2.0 * pi * i / count;
    microphones.push_back({radius * std::cos(azimuth), radius * std::sin(azimuth), 0.0});
  }
  return microphones;
}

Positions linearArray(int count, double spacing) {
  requireCount("--linear: COUNT", count);
  requireLength("--linear: SPACING", spacing, MAX_DISTANCE);
  Positions microphones;
  for (int i = 0; i < count; ++i)
    microphones.push_back({0.0, (i - 0.5 * (count - 1)) * spacing, 0.0});
  return microphones;
}

Positions gridPositions(const DirectionGrid& grid) {
  if (!(grid.azimuthStep > 0.0 && grid.azimuthStep <= 360.0)) {
    throw DataError(fmt::format("--azimuth-step is {}, expected above 0 and up to 360 degrees",
                                grid.azimuthStep));
  }
  const double perTurn = std::ceil(360.0 / grid.azimuthStep - 1e-9);
  const double all = perTurn * static_cast<double>(grid.elevations.size()) *
                     static_cast<double>(grid.distances.size());
  if (all > MAX_POSITIONS) {
    throw DataError(fmt::format(
        "--azimuth-step {} with {} elevations and {} distances makes {:.0f} positions, expected at "
        "most {:.0f}",
        grid.azimuthStep, grid.elevations.size(), grid.distances.size(), all, MAX_POSITIONS));
  }
  Positions positions;
  for (const double metres : grid.distances) {
    requireLength("--distances", metres, MAX_DISTANCE);
    for (const double elevation : grid.elevations) {
      if (!(std::abs(elevation) <= 90.0)) {
        throw DataError(
            fmt::format("--elevations holds {}, expected -90 to 90 degrees", elevation));
      }
      const bool pole = std::abs(elevation) == 90.0;
      const double level = pole ? 0.0 : metres * std::cos(BF::radians(elevation));
      const double height = metres * std::sin(BF::radians(elevation));
      for (int i = 0; i < (pole ? 1 : static_cast<int>(perTurn)); ++i) {
        const double azimuth = BF::radians(i * grid.azimuthStep);
        positions.push_back({level * std::cos(azimuth), level * std::sin(azimuth), height});
      }
    }
  }
  return positions;
}

SofaTransferFunctions freeFieldResponses(const Positions& microphones, const Positions& sources,
                                         const FrameShape& frame) {
  checkFrame("tfdb geometry", frame, microphones.size() * sources.size());
  const Position centre = centreOf(microphones);
  requireCompact(microphones, centre, frame);
  SofaTransferFunctions data;
  data.sourcePositions = sources;
  data.receiverPositions = microphones;
  data.samplingRate = frame.rate;
  data.frequencies = binsOf(frame);
  data.title = "free-field responses of spherical waves";
  data.values.reserve(microphones.size() * sources.size() * data.frequencies);
  for (const Position& source : sources) {
    const double toCentre = distance(source, centre);
    for (std::size_t m = 0; m < microphones.size(); ++m) {
      const double away = distance(source, microphones[m]);
      if (std::min(away, toCentre) < MIN_DISTANCE) {
        throw DataError(fmt::format(
            "the source at {} m is {:.2g} m away from {}, expected {} m or more (--distances)",
            text(source), std::min(away, toCentre),
            away < MIN_DISTANCE ? fmt::format("microphone {}", m + 1) : "the array's centre",
            MIN_DISTANCE));
      }
      const double turn = -pi * frame.rate * (away - toCentre) / BF::SPEED_OF_SOUND /
                          static_cast<double>(data.frequencies - 1);  // radians per bin
      for (std::size_t k = 0; k < data.frequencies; ++k) {
        data.values.emplace_back(std::polar(toCentre / away, turn * static_cast<double>(k)));
      }
    }
  }
  return data;
}
