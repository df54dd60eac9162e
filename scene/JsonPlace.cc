#include "scene/JsonPlace.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "dsp/DataError.h"
#include "scene/Json.h"

namespace Audio {

using nlohmann::json;

json parseJsonOf(const std::string& text, const std::string& name) {
  try {
    return parseJson(text);
  } catch (const DataError& error) {
    throw DataError(fmt::format("{}: {}", name, error.what()));
  }
}

JsonPlace::JsonPlace(const std::string& fileName, std::string documentPath,
                     const json& documentValue)
    : file(&fileName), path(std::move(documentPath)), value(&documentValue) {}

JsonPlace JsonPlace::at(const std::string& key) const {
  return {*file, path + "/" + key, value->at(key)};
}

JsonPlace JsonPlace::at(std::size_t i) const {
  return {*file, fmt::format("{}/{}", path, i), value->at(i)};
}

void JsonPlace::refuse(const std::string& found, const std::string& expected) const {
  throw DataError(fmt::format("{}: {}: found {}, expected {}", *file, path.empty() ? "/" : path,
                              found, expected));
}

void JsonPlace::refuse(const std::string& expected) const { refuse(quotedJson(*value), expected); }

void JsonPlace::checkKeys(std::initializer_list<const char*> required,
                          std::initializer_list<const char*> optional) const {
  std::vector<std::string> known(required.begin(), required.end());
  known.insert(known.end(), optional.begin(), optional.end());
  const std::string names = fmt::format("{}", fmt::join(known, ", "));
  if (!value->is_object()) refuse("an object with the keys " + names);
  for (const auto& [key, unused] : value->items()) {
    if (std::find(known.begin(), known.end(), key) == known.end()) {
      refuse("the unknown key " + quotedJson(key), "only " + names);
    }
  }
  for (const char* key : required) {
    if (!value->contains(key)) refuse(fmt::format("no key \"{}\"", key), "one");
  }
}

double JsonPlace::number(const std::string& expected, double most) const {
  if (!value->is_number()) refuse(expected);
  const auto x = value->get<double>();
  if (!(std::abs(x) <= most)) refuse(expected);
  return x;
}

}  // namespace Audio
