#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Separation {

/// Samples of one separated source.
struct Signal {
  int id = 0;
  std::span<const float> samples;
};

/// What is finished: samples start … start + count − 1 of every source. A source that is not in the
/// list is silent in this stretch; each that is has count samples.
struct Output {
  std::int64_t start = 0;
  std::size_t count = 0;
  std::vector<Signal> signals;
};

}  // namespace Separation
