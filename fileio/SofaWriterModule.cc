#include <dlfcn.h>
#include <fmt/format.h>

#include "audio/OutputFile.h"
#include "dsp/DataError.h"
#include "fileio/LibraryFolder.h"
#include "fileio/SofaWriter.h"

// The libraries for the format take longer to load than most databases: only who writes loads them.
void writeSofa(Audio::OutputFile& file, const SofaTransferFunctions& data) {
  void* module = dlopen(besideLibrary("libzelk-sofa-writer.so").c_str(), RTLD_NOW | RTLD_LOCAL);
  void* function = module ? dlsym(module, "zelkWriteSofa") : nullptr;
  if (!function) throw DataError(fmt::format("{}: cannot write: {}", file.path(), dlerror()));
  reinterpret_cast<decltype(&zelkWriteSofa)>(function)(file.temporaryName(), file.path(), data);
}

void writeSofa(const std::string& path, const SofaTransferFunctions& data) {
  Audio::OutputFile file(path, true);
  writeSofa(file, data);
  file.finish();
}
