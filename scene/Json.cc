#include "scene/Json.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>
#include <vector>

#include "dsp/DataError.h"

namespace Audio {

namespace {

using nlohmann::json;

constexpr std::size_t MAX_DEPTH = 8;
constexpr std::size_t MAX_QUOTE = 60;
constexpr std::size_t MAX_REASON = 200;

std::string shortened(const std::string& text, std::size_t longest) {
  return text.size() > longest ? text.substr(0, longest) + "…" : text;
}

std::string printable(std::string text) {
  const auto isUnprintable = [](char c) { return c < 0x20 || c > 0x7E; };
  std::replace_if(text.begin(), text.end(), isUnprintable, '?');
  return text;
}

/// The library's reason without its own name and number in brackets. It quotes the text as it is.
std::string reasonOf(const json::exception& error) {
  const std::string text = error.what();
  const std::size_t bracket = text.find("] ");
  std::string reason = bracket == std::string::npos ? text : text.substr(bracket + 2);
  return shortened(printable(std::move(reason)), MAX_REASON);
}

/// Goes through a document and refuses what the parser lets pass. Not by the parser's own
/// call-back, which looks at all elements before an element of a list, for each of them.
class DocumentGuard : public nlohmann::json_sax<json> {
 public:
  bool null() override { return element(); }
  bool boolean(bool /*value*/) override { return element(); }
  bool number_integer(json::number_integer_t /*value*/) override { return element(); }
  bool number_unsigned(json::number_unsigned_t /*value*/) override { return element(); }
  bool number_float(json::number_float_t /*value*/, const std::string& /*text*/) override {
    return element();
  }
  bool string(std::string& /*value*/) override { return element(); }
  bool binary(json::binary_t& /*value*/) override { return element(); }
  bool start_object(std::size_t /*size*/) override { return begin(false); }
  bool start_array(std::size_t /*size*/) override { return begin(true); }
  bool end_object() override { return end(); }
  bool end_array() override { return end(); }
  /// The parser proper reports it.
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const json::exception& /*error*/) override {
    return false;
  }

  bool key(std::string& name) override {
    Level& level = levels.back();
    level.key = name;
    if (level.keys.insert(name).second) return true;
    throw DataError(
        fmt::format("{}: found the key {} twice, expected it once", place(), quotedJson(name)));
  }

 private:
  struct Level {
    bool isArray = false;
    std::size_t elements = 0;    // of an array, begun so far
    std::set<std::string> keys;  // of an object
    std::string key;             // the last of them
  };

  bool element() {
    if (!levels.empty()) ++levels.back().elements;
    return true;
  }

  bool begin(bool isArray) {
    element();
    if (levels.size() >= MAX_DEPTH) {
      throw DataError(fmt::format("is nested deeper than {} levels", MAX_DEPTH));
    }
    levels.push_back({isArray, 0, {}, {}});
    return true;
  }

  bool end() {
    levels.pop_back();
    return true;
  }

  /// Of the innermost object, such as /sources/0.
  std::string place() const {
    std::string path;
    for (std::size_t i = 0; i + 1 < levels.size(); ++i) {
      const Level& level = levels[i];
      path += '/';
      path += level.isArray ? std::to_string(level.elements - 1)
                            : shortened(printable(level.key), MAX_QUOTE);
    }
    return path.empty() ? "/" : path;
  }

  std::vector<Level> levels;
};

}  // namespace

json parseJson(const std::string& text) {
  DocumentGuard guard;
  json::sax_parse(text, &guard);
  try {
    return json::parse(text);
  } catch (const json::exception& error) {
    throw DataError("is no valid JSON: " + reasonOf(error));
  }
}

std::string quotedJson(const json& value) {
  std::string text = value.dump(-1, ' ', true, json::error_handler_t::replace);
  std::replace(text.begin(), text.end(), '\x7F', '?');  // the one control character left as it is
  return shortened(text, MAX_QUOTE);
}

}  // namespace Audio
