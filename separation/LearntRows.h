#pragma once

#include <cstddef>
#include <map>
#include <vector>

#include "bf/BF.h"

namespace Separation {

/// What an adaptive engine has learnt of its sources, by their ids, from one pass over a recording
/// to the next: rows of W, and for CMSNR the pairs of correlations.
class LearntRows {
 public:
  /// Notes what the engine knows of the sources in force.
  void keep(const BF::BF& engine);

  /// Gives an engine back what is known of the sources with these indices in its list. Throws
  /// nothing.
  void restore(const std::vector<std::size_t>& indices, BF::BF& engine) const;

 private:
  struct Learnt {
    std::vector<BF::Matrix> rows;    // per bin, 1 × M
    std::vector<BF::Matrix> signal;  // per bin, M × M
    std::vector<BF::Matrix> noise;
  };
  std::map<int, Learnt> known;
};

}  // namespace Separation
