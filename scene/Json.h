#pragma once

#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>

namespace Audio {

/// Why a text is no document that can be used, without the name of its file.
class JsonError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The document of a JSON text, nested 8 levels at most: deeper ones are wrong, and might be deep
/// enough to exhaust the stack. Throws JsonError; its reason is one line of printable characters.
nlohmann::json parseJson(const std::string& text);

/// A value for a message: as JSON on one line of printable characters, cut off where it is long.
std::string quotedJson(const nlohmann::json& value);

}  // namespace Audio
