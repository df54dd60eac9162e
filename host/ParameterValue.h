#pragma once

#include <optional>
#include <string>

#include "ObjectRef.h"

namespace FD {
inline namespace zelk {

/// The object a parameter's text stands for. type: "int" (Int), "float" (Float), "string" (String),
/// "bool" (Bool; "true" or "false") or "object": text such as "<Float 0.5>", "<String a b>" or
/// "<Vector<int> 1 2 3>", with Int, Float, Double, Bool, String, Vector<int>, Vector<float>,
/// Vector<double> and Vector (of float).
/// Throws std::invalid_argument, saying what was expected, for any other type or text.
ObjectRef parseValue(const std::string& type, const std::string& text);

/// The whole text as an int or a float, blanks around it and a plus sign allowed.
std::optional<int> parseInt(const std::string& text);
std::optional<float> parseFloat(const std::string& text);

}  // namespace zelk
}  // namespace FD
