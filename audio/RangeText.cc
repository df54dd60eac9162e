#include "audio/RangeText.h"

namespace Audio {

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

std::pair<std::string_view, std::string_view> splitAtDash(std::string_view item) {
  const auto dash = item.find('-');
  if (dash == std::string_view::npos) return {item, {}};
  return {item.substr(0, dash), item.substr(dash + 1)};
}

}  // namespace Audio
