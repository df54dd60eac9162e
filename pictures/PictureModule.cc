#include "pictures/PictureModule.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include "dsp/DataError.h"
#include "fileio/LibraryFolder.h"

void* addressOfPictureFunction(const char* name) {
  void* module =
      dlopen(besideLibrary("libzelk-picture-renderer.so").c_str(), RTLD_NOW | RTLD_LOCAL);
  void* function = module ? dlsym(module, name) : nullptr;
  if (!function) throw DataError(fmt::format("cannot load what makes PNG images: {}", dlerror()));
  return function;
}
