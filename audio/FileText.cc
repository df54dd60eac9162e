#include "audio/FileText.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "dsp/DataError.h"

namespace Audio {

namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

std::string fileText(const std::string& path, std::size_t most) {
  const std::unique_ptr<std::FILE, FileCloser> file(
      std::fopen(path == "-" ? "/dev/stdin" : path.c_str(), "rb"));
  std::string text;
  char block[16384];
  std::size_t got = file ? std::fread(block, 1, sizeof block, file.get()) : 0;
  for (; got > 0; got = std::fread(block, 1, sizeof block, file.get())) {
    text.append(block, got);
    if (text.size() <= most) continue;
    throw DataError(fmt::format("{}: has more than {} bytes, expected at most that", path, most));
  }
  // A folder opens like a file and fails only when read.
  if (!file || std::ferror(file.get()) != 0) {
    throw DataError(fmt::format("{}: cannot be read: {}", path, std::strerror(errno)));
  }
  return text;
}

}  // namespace Audio
