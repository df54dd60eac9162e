#pragma once

#include <string>
#include <vector>

namespace Audio {

/// A stretch of time in seconds, from `begin` up to but not including `end`.
struct TimeRange {
  double begin;
  double end;
};

/// The ranges of a text such as "0-1.5,4-5.25", in its order. Throws DataError unless each has
/// 0 ≤ begin < end, or when there is none.
std::vector<TimeRange> parseTimeRanges(const std::string& text);

}  // namespace Audio
