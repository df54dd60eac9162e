#pragma once

#include <charconv>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace Audio {

/// The items of a text such as "1-4, 7", without the blanks around them: one more than there are
/// commas, and each may be empty. Views into the text.
std::vector<std::string_view> splitAtCommas(std::string_view text);

/// Both sides of the first '-' of an item; the second is empty when there is none.
std::pair<std::string_view, std::string_view> splitAtDash(std::string_view item);

/// A text without the blanks around it.
std::string_view trimmed(std::string_view text);

/// Whether the whole text, but for blanks around it, is one number, which then stands in value.
template <class T>
bool parseNumber(std::string_view text, T& value) {
  text = trimmed(text);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return !text.empty() && error == std::errc() && end == text.data() + text.size();
}

}  // namespace Audio
