#pragma once

#include <cstddef>
#include <vector>

#include "scene/Scene.h"

/// Impulse responses from numbered places to the microphones of an array.
class Responses {
 public:
  Responses() = default;
  Responses(const Responses&) = default;
  Responses(Responses&&) = default;
  Responses& operator=(const Responses&) = default;
  Responses& operator=(Responses&&) = default;
  virtual ~Responses() = default;

  virtual int samplingRate() const = 0;  ///< Hz
  virtual std::size_t microphones() const = 0;

  /// The place to render a source at a point from, as its number from 0, and where it is.
  virtual std::size_t nearest(const BF::Location& point) const = 0;
  virtual BF::Location position(std::size_t place) const = 0;

  /// Up to `count` places all around the array, for noise from everywhere.
  virtual std::vector<std::size_t> surround(std::size_t count) const = 0;

  /// Impulse response from a place to microphone r, its delay included.
  virtual std::vector<double> response(std::size_t place, std::size_t r) const = 0;
};
