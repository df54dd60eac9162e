#include "audio/Channels.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>
#include <utility>

#include "dsp/DataError.h"

namespace Audio {

namespace {

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::vector<std::string_view> splitAtCommas(std::string_view text) {
  std::vector<std::string_view> items;
  while (true) {
    const auto comma = text.find(',');
    items.push_back(trimmed(text.substr(0, comma)));
    if (comma == std::string_view::npos) return items;
    text.remove_prefix(comma + 1);
  }
}

/// Whether the whole text is one number, which then stands in value.
template <class T>
bool parseNumber(std::string_view text, T& value) {
  text = trimmed(text);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return !text.empty() && error == std::errc() && end == text.data() + text.size();
}

/// Both sides of the first '-' of the text; the second is empty when there is none.
std::pair<std::string_view, std::string_view> splitAtDash(std::string_view text) {
  const auto dash = text.find('-');
  if (dash == std::string_view::npos) return {text, {}};
  return {text.substr(0, dash), text.substr(dash + 1)};
}

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
