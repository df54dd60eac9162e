#include "audio/Channels.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "audio/RangeText.h"
#include "dsp/DataError.h"

namespace Audio {

namespace {

/// First and last channel of "4" or "1-4".
std::pair<int, int> parseChannelItem(std::string_view item, const std::string& text,
                                     const std::string& name) {
  const auto [left, right] = splitAtDash(item);
  int first = 0;
  int last = 0;
  const bool isRange = item.find('-') != std::string_view::npos;
  if (!parseNumber(left, first) || (isRange && !parseNumber(right, last))) {
    throw DataError(
        fmt::format("{} is \"{}\": found \"{}\", expected channel numbers from 1 such as \"1-4,7\"",
                    name, text, item));
  }
  return {first, isRange ? last : first};
}

}  // namespace

std::vector<int> selectedChannels(const std::string& text, int fileChannels,
                                  const std::string& name) {
  std::vector<int> channels;
  if (trimmed(text).empty()) {
    for (int c = 0; c < fileChannels; ++c) channels.push_back(c);
    return channels;
  }
  for (const std::string_view item : splitAtCommas(text)) {
    const auto [first, last] = parseChannelItem(item, text, name);
    if (first < 1 || last > fileChannels || first > last) {
      throw DataError(
          fmt::format("{} is \"{}\": \"{}\" does not fit a file whose channels are 1 to {}", name,
                      text, item, fileChannels));
    }
    for (int c = first; c <= last; ++c) {
      if (std::find(channels.begin(), channels.end(), c - 1) != channels.end()) {
        throw DataError(fmt::format("{} is \"{}\": channel {} is named twice", name, text, c));
      }
      channels.push_back(c - 1);
    }
  }
  return channels;
}

}  // namespace Audio
