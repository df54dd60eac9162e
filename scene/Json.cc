#include "scene/Json.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

namespace Audio {

namespace {

using nlohmann::json;

constexpr int MAX_DEPTH = 8;
constexpr std::size_t LONGEST_QUOTE = 60;
constexpr std::size_t LONGEST_REASON = 200;

std::string shortened(const std::string& text, std::size_t longest) {
  return text.size() > longest ? text.substr(0, longest) + "…" : text;
}

/// The library's reason without its own name and number in brackets. It quotes the text as it is.
std::string reasonOf(const json::exception& error) {
  const std::string text = error.what();
  const std::size_t bracket = text.find("] ");
  std::string reason = bracket == std::string::npos ? text : text.substr(bracket + 2);
  const auto isUnprintable = [](char c) { return c < 0x20 || c > 0x7E; };
  std::replace_if(reason.begin(), reason.end(), isUnprintable, '?');
  return shortened(reason, LONGEST_REASON);
}

}  // namespace

json parseJson(const std::string& text) {
  const auto limitDepth = [](int depth, json::parse_event_t, json&) {
    if (depth <= MAX_DEPTH) return true;
    throw JsonError(fmt::format("is nested deeper than {} levels", MAX_DEPTH));
  };
  try {
    return json::parse(text, limitDepth);
  } catch (const json::exception& error) {
    throw JsonError("is no valid JSON: " + reasonOf(error));
  }
}

std::string quotedJson(const json& value) {
  std::string text = value.dump(-1, ' ', true, json::error_handler_t::replace);
  std::replace(text.begin(), text.end(), '\x7F', '?');  // the one control character left as it is
  return shortened(text, LONGEST_QUOTE);
}

}  // namespace Audio
