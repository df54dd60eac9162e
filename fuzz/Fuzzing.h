#pragma once

// What the fuzz targets share. An input is a finding when it crashes or hangs a target, or makes
// the library break one of its laws.

#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

/// Each target defines this; it returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the process, so that the input becomes a finding, unless the law holds.
inline void require(bool holds, const char* law) {
  if (holds) return;
  std::fprintf(stderr, "broken law: %s\n", law);
  std::abort();
}

/// Whether a message may be shown to a person: one line of limited length that nothing in the input
/// can turn into commands to a terminal.
inline bool isShowable(const std::string& message) {
  constexpr std::size_t MAX_LENGTH = 1000;
  if (message.empty() || message.size() > MAX_LENGTH) return false;
  for (const char c : message) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return false;
  }
  return true;
}

/// A file of this process in the folder for temporary files ($TMPDIR), to be filled anew for each
/// input.
class ScratchFile {
 public:
  ScratchFile()
      : name(std::filesystem::temp_directory_path() / ("fuzz-" + std::to_string(getpid()))) {}
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  ~ScratchFile() { std::remove(name.c_str()); }

  const std::string& path() const { return name; }

  void fill(const void* data, std::size_t size) const {
    std::ofstream file(name, std::ios::binary | std::ios::trunc);
    file.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    require(file.flush().good(), "the scratch file can be written");
  }

 private:
  std::string name;
};
