#pragma once

#include <optional>
#include <string>
#include <vector>

#include "scoring/ScoreMetrics.h"

/// What a comparison of estimates with references found.
struct ScoreReport {
  struct Source {
    std::string reference;  ///< file names
    std::string estimate;
    SourceScore score;
    std::optional<SourceScore> mixture;  ///< the mixture's, taken as the estimate of this source
  };

  std::vector<Source> sources;
  std::vector<std::string> notes;  ///< about the input, a sentence each
  std::size_t samples = 0;         ///< compared length
  int samplingRate = 0;            ///< Hz
  int filterTaps = 1;

  /// A line for each source and, for several, one of their means; scores in dB with two decimals,
  /// "inf" and "-inf" where they are infinite and "n/a" where infinite ones cancel.
  std::string table() const;

  /// The same as a JSON object with full precision: infinite scores are the texts "inf" and "-inf",
  /// undefined ones null.
  std::string json() const;
};
