#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace Audio {

/// The document of a JSON text, nested 8 levels at most: deeper ones are wrong, and might be deep
/// enough to exhaust the stack. No object may have a key twice, of which one would count and the
/// other not. Throws DataError; its reason is one line of printable characters.
nlohmann::json parseJson(const std::string& text);

/// A value for a message: as JSON on one line of printable characters, cut off where it is long.
std::string quotedJson(const nlohmann::json& value);

}  // namespace Audio
