#include "scene/TimeRange.h"

#include <fmt/format.h>

#include <cmath>
#include <string_view>

#include "audio/RangeText.h"
#include "dsp/DataError.h"

namespace Audio {

std::vector<TimeRange> parseTimeRanges(const std::string& text) {
  std::vector<TimeRange> ranges;
  for (const std::string_view item : splitAtCommas(text)) {
    const auto [left, right] = splitAtDash(item);
    TimeRange range{};
    if (!parseNumber(left, range.begin) || !parseNumber(right, range.end) || range.begin < 0 ||
        !std::isfinite(range.end) || range.begin >= range.end) {
      throw DataError(fmt::format(
          "RANGES is \"{}\": found \"{}\", expected seconds begin-end with 0 <= begin < end, such "
          "as \"0-1.5,4-5\"",
          text, item));
    }
    ranges.push_back(range);
  }
  return ranges;
}

}  // namespace Audio
