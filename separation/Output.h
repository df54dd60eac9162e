#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Separation {

/// Samples of one separated source.
struct Signal {
  int id = 0;                      ///< of the source, as setSources gave it
  std::span<const float> samples;  ///< owned by the separator, valid until its next call
};

/// What is finished: samples start … start + count − 1 of every source. A source that is not in the
/// list is silent in this stretch; each that is has count samples.
struct Output {
  std::int64_t start = 0;       ///< number of the first sample, from the recording's begin
  std::size_t count = 0;        ///< samples of every source
  std::vector<Signal> signals;  ///< those of the sources that are not silent
};

}  // namespace Separation
