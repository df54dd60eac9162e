#include "fileio/LibraryFolder.h"

#include <dlfcn.h>

std::string besideLibrary(const std::string& name) {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&besideLibrary), &info) == 0 || !info.dli_fname) return name;
  const std::string library = info.dli_fname;
  return library.substr(0, library.rfind('/') + 1) + name;
}
