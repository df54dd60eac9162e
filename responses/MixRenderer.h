#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "responses/Responses.h"
#include "scene/Scene.h"

/// What a source sounds like at the microphones: at the rate of the responses, from scene time 0
/// on.
struct SourceImage {
  std::size_t microphones = 0;
  std::vector<float> samples;  ///< microphones in turn

  std::size_t length() const { return samples.size() / microphones; }
};

/// Renders the sources of a scene with measured or computed responses, in double precision.
class MixRenderer {
 public:
  /// The responses must outlive the renderer.
  explicit MixRenderer(const Responses& set) : responses(set) {}

  /// The image of a source that emits the samples `dry`, at the rate of the responses.
  ///
  /// The first sample is emitted at the source's first active time from 0 on, at 0 if it is always
  /// active.
  /// Outside the active ranges the samples are muted; a range, or ranges that touch, begins and
  /// ends with a ramp of 5 ms. A source sounds from the measured position that is nearest; for a
  /// moving one that is looked up every 10 ms, and what it emits in between passes linearly from
  /// one response to the next.
  SourceImage render(const Audio::SceneSource& source, const std::vector<float>& dry) const;

  /// The largest angle in degrees, seen from the origin, between the source while it emits and the
  /// measured position it is rendered from.
  double largestDeviation(const Audio::SceneSource& source, std::size_t drySamples) const;

 private:
  /// Samples from `begin` up to `end` that pass through one response, faded in over the first
  /// `rise` of them and out over the last `fall`.
  struct Passage {
    std::size_t measurement;
    std::size_t begin;
    std::size_t end;
    std::size_t rise;
    std::size_t fall;
  };

  std::size_t blockLength() const;
  std::vector<double> emitted(const Audio::SceneSource& source,
                              const std::vector<float>& dry) const;
  std::vector<Passage> passages(const Audio::SceneSource& source, std::size_t begin,
                                std::size_t end) const;

  const Responses& responses;
};
