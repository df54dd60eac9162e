#include <dlfcn.h>
#include <fmt/format.h>

#include "audio/OutputFile.h"
#include "dsp/DataError.h"
#include "fileio/LibraryFolder.h"
#include "fileio/SofaWriter.h"

namespace {

// The libraries for the format take longer to load than most databases: only who writes loads them.
template <class Data>
void writeByModule(const char* functionName, Audio::OutputFile& file, const Data& data) {
  using Function = void(const std::string& path, const std::string& name, const Data& data);
  void* module = dlopen(besideLibrary("libzelk-sofa-writer.so").c_str(), RTLD_NOW | RTLD_LOCAL);
  void* function = module ? dlsym(module, functionName) : nullptr;
  if (!function) throw DataError(fmt::format("{}: cannot write: {}", file.path(), dlerror()));
  reinterpret_cast<Function*>(function)(file.temporaryName(), file.path(), data);
}

}  // namespace

void writeSofa(Audio::OutputFile& file, const SofaTransferFunctions& data) {
  writeByModule("zelkWriteTransferFunctions", file, data);
}

void writeSofa(Audio::OutputFile& file, const SofaImpulseResponses& data) {
  writeByModule("zelkWriteImpulseResponses", file, data);
}

void writeSofa(const std::string& path, const SofaTransferFunctions& data) {
  Audio::OutputFile file(path, true);
  writeSofa(file, data);
  file.finish();
}
