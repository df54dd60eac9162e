#pragma once

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

/// A folder of its own for one test, removed with everything in it.
class TestFolder {
 public:
  TestFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "zelk-test-XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    path = name;
  }
  ~TestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  std::string operator/(const std::string& name) const { return (path / name).string(); }

  /// Writes a text or bytes, and returns the file's path.
  std::string write(const std::string& name, const std::string& content) const {
    std::ofstream(path / name, std::ios::binary) << content;
    return (path / name).string();
  }

  /// Names of all files in it or in a folder below it, sorted.
  std::vector<std::string> names(const std::string& below = "") const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(path / below)) {
      found.push_back(entry.path().filename().string());
    }
    std::sort(found.begin(), found.end());
    return found;
  }

 private:
  std::filesystem::path path;
};
