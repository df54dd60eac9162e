#pragma once

#include <string>
#include <vector>

namespace Audio {

/// The channels that a text such as "1-4,7" selects of a file with fileChannels channels, as
/// indices from 0 in the order of the text, whose numbers count from 1. An empty text selects all.
/// Throws DataError for anything else, for a channel the file does not have and for one named
/// twice; the message calls the text by `name`.
std::vector<int> selectedChannels(const std::string& text, int fileChannels,
                                  const std::string& name = "CHANNELS");

/// A stretch of time in seconds, from `begin` up to but not including `end`.
struct TimeRange {
  double begin;
  double end;
};

/// The ranges of a text such as "0-1.5,4-5.25", in its order. Throws DataError unless each has
/// 0 ≤ begin < end, or when there is none.
std::vector<TimeRange> parseTimeRanges(const std::string& text);

}  // namespace Audio
