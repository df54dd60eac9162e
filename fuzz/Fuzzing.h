#pragma once

// What the fuzz targets share. An input is a finding when it crashes or hangs a target, or makes
// the library break one of its laws.

#include <fuzzer/FuzzedDataProvider.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
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
  constexpr std::size_t LONGEST = 1000;
  if (message.empty() || message.size() > LONGEST) return false;
  for (const char c : message) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return false;
  }
  return true;
}

/// A file that is in memory alone and has a path; it is gone with the process.
class MemoryFile {
 public:
  MemoryFile() : descriptor(memfd_create("fuzz", 0)) { require(descriptor >= 0, "memfd_create"); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile() { close(descriptor); }

  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

  void fill(const void* data, std::size_t size) const {
    require(ftruncate(descriptor, 0) == 0, "ftruncate");
    const ssize_t written = pwrite(descriptor, data, size, 0);
    require(written == static_cast<ssize_t>(size), "pwrite");
  }

 private:
  int descriptor;
};
