#pragma once

#include <cstddef>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>

namespace Audio {

/// parseJson for the text of a file. Throws DataError "<name>: <reason>".
nlohmann::json parseJsonOf(const std::string& text, const std::string& name);

/// A value of a JSON file and where it stands in it, such as /sources/0/azimuth, so that whoever
/// takes it apart can say what is wrong there. File name and document must outlive it.
class JsonPlace {
 public:
  JsonPlace(const std::string& fileName, std::string documentPath,
            const nlohmann::json& documentValue);

  const nlohmann::json& operator*() const { return *value; }
  const nlohmann::json* operator->() const { return value; }
  const std::string& where() const { return path; }

  JsonPlace at(const std::string& key) const;
  JsonPlace at(std::size_t i) const;

  /// Throw DataError "<file>: <place>: found <found>, expected <expected>"; without `found` it is
  /// the value.
  [[noreturn]] void refuse(const std::string& found, const std::string& expected) const;
  [[noreturn]] void refuse(const std::string& expected) const;

  /// Refuses what is no object, lacks one of the required keys or has one that is in neither list.
  void checkKeys(std::initializer_list<const char*> required,
                 std::initializer_list<const char*> optional) const;

  /// A number within ±most.
  double number(const std::string& expected, double most) const;

  double seconds() const { return number("a time in seconds, within ±1e9", 1e9); }

 private:
  const std::string* file;
  std::string path;
  const nlohmann::json* value;
};

}  // namespace Audio
