#include "ParameterValue.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "Vector.h"
#include "net_types.h"

namespace FD {
inline namespace zelk {

namespace {

constexpr std::string_view BLANKS = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(BLANKS);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

// Independent of the locale, unlike streams and strtod.
template <class T>
std::optional<T> parseNumber(std::string_view text) {
  text = trimmed(text);
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

[[noreturn]] void refuse(std::string_view text, std::string_view expected) {
  throw std::invalid_argument(fmt::format("'{}' is not {}", text, expected));
}

template <class T>
T numberOrRefuse(std::string_view text, std::string_view expected) {
  const auto value = parseNumber<T>(text);
  if (!value) refuse(text, expected);
  return *value;
}

bool truthOrRefuse(std::string_view text) {
  text = trimmed(text);
  if (text != "true" && text != "false") refuse(text, "true or false");
  return text == "true";
}

template <class T>
ObjectRef parseVector(const std::string& elements, std::string_view expected) {
  RCPtr<Vector<T>> vector(new Vector<T>);
  std::istringstream words(elements);
  for (std::string word; words >> word;) {
    vector->push_back(numberOrRefuse<T>(word, expected));
  }
  return vector;
}

// "<Kind content>"
ObjectRef parseObject(std::string_view text) {
  const std::string_view whole = trimmed(text);
  if (whole.size() < 3 || whole.front() != '<' || whole.back() != '>') {
    refuse(text, "an object such as <Float 0.5>");
  }
  std::string_view inside = whole.substr(1, whole.size() - 2);
  // An empty object needs no blank behind its kind: "<Vector<int>>".
  const std::size_t kindEnd = std::min(inside.find_first_of(BLANKS), inside.size());
  const std::string_view kind = inside.substr(0, kindEnd);
  const std::string content(trimmed(inside.substr(kindEnd)));
  if (kind == "Int") return ObjectRef(Int::alloc(numberOrRefuse<int>(content, "an int")));
  if (kind == "Float") return ObjectRef(Float::alloc(numberOrRefuse<float>(content, "a float")));
  if (kind == "Double") return ObjectRef(Double::alloc(numberOrRefuse<double>(content, "a float")));
  if (kind == "Bool") return ObjectRef(Bool::alloc(truthOrRefuse(content)));
  if (kind == "String") return ObjectRef(new String(content));
  if (kind == "Vector<int>") return parseVector<int>(content, "an int");
  if (kind == "Vector" || kind == "Vector<float>") return parseVector<float>(content, "a float");
  if (kind == "Vector<double>") return parseVector<double>(content, "a float");
  refuse(kind,
         "a kind of object that can be read; expected Int, Float, Double, Bool, String or Vector");
}

}  // namespace

std::optional<int> parseInt(const std::string& text) { return parseNumber<int>(text); }
std::optional<float> parseFloat(const std::string& text) { return parseNumber<float>(text); }

ObjectRef parseValue(const std::string& type, const std::string& text) {
  if (type == "int") return ObjectRef(Int::alloc(numberOrRefuse<int>(text, "an int")));
  if (type == "float") return ObjectRef(Float::alloc(numberOrRefuse<float>(text, "a float")));
  if (type == "string") return ObjectRef(new String(text));
  if (type == "bool") return ObjectRef(Bool::alloc(truthOrRefuse(text)));
  if (type == "object") return parseObject(text);
  throw std::invalid_argument(fmt::format(
      "unknown type '{}'; expected int, float, string, bool, object or subnet_param", type));
}

}  // namespace zelk
}  // namespace FD
