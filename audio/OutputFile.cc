#include "audio/OutputFile.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

void checkOutput(const std::string& path, bool overwrite) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  const fs::path folder = fs::path(path).parent_path();
  if (!folder.empty() && !fs::is_directory(folder, ignored)) {
    throw OutputError(
        fmt::format("{}: cannot be written: there is no folder {}, expected one that "
                    "exists",
                    path, folder.string()));
  }
  if (path.empty() || fs::is_directory(path, ignored)) {
    throw OutputError(fmt::format("\"{}\": cannot be written: {}, expected the name of a file",
                                  path, path.empty() ? "the name is empty" : "it is a folder"));
  }
  if (!overwrite && fs::exists(path, ignored)) {
    throw OutputError(
        fmt::format("{}: exists already, expected a new name (--force replaces the file)", path));
  }
}

OutputFile::OutputFile(const std::string& path, bool overwrite)
    : finalPath(path),
      part(fmt::format("{}.{}.part", path, getpid()), path),
      mayOverwrite(overwrite) {
  checkOutput(finalPath, mayOverwrite);
}

void OutputFile::write(std::string_view text) {
  errno = 0;
  std::ofstream file(part.path(), std::ios::binary | std::ios::trunc);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  file.close();
  if (!file) {
    throw OutputError(fmt::format("{}: cannot be written: {}", part.path(), std::strerror(errno)));
  }
}

void OutputFile::finish() {
  checkOutput(finalPath, mayOverwrite);
  if (const std::error_code error = part.rename()) {
    throw OutputError(
        fmt::format("{}: cannot be named {}: {}", part.path(), finalPath, error.message()));
  }
}
