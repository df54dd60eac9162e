#include "cli/OutputCheck.h"

#include <fmt/format.h>

#include <filesystem>
#include <iostream>

#include "audio/OutputFile.h"
#include "dsp/DataError.h"

void checkOutput(const std::string& path, bool overwrite, const std::vector<std::string>& inputs) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  const fs::path folder = fs::path(path).parent_path();
  if (!folder.empty() && !fs::is_directory(folder, ignored)) {
    throw DataError(
        fmt::format("{}: cannot be written: there is no folder {}, expected one that "
                    "exists",
                    path, folder.string()));
  }
  if (path.empty() || fs::is_directory(path, ignored)) {
    throw DataError(fmt::format("\"{}\": cannot be written: {}, expected the name of a file", path,
                                path.empty() ? "the name is empty" : "it is a folder"));
  }
  if (!overwrite && fs::exists(fs::symlink_status(path, ignored))) {
    throw DataError(
        fmt::format("{}: exists already, expected a new name (--force replaces the file)", path));
  }
  refuseInput(path, inputs);
}

void writeResult(const std::string& text, const std::string& path, bool overwrite) {
  if (path.empty()) {
    std::cout << text;
    return;
  }
  Audio::OutputFile file(path, overwrite);
  file.write(text);
  file.finish();
}

void refuseInput(const std::string& path, const std::vector<std::string>& inputs) {
  for (const std::string& input : inputs) {
    std::error_code missing;
    if (!std::filesystem::equivalent(path, input, missing) || missing) continue;
    throw DataError(fmt::format("{}: is the input {} itself, expected another file", path, input));
  }
}
