// Announces the module to the host when the plug-in is loaded.

#include "Object.h"
#include "audio/OutputFile.h"

/// For a host that handles signals: removes the names of files that the plug-in has not completed.
/// To be found by dlsym; may be called by a handler.
extern "C" void zelkRemoveUnfinishedFiles() { Audio::OutputFile::removeAll(); }

#ifdef ZELK_HOST_HAS_MODULE_VERSION
namespace {

const int moduleRegistered = FD::Object::setModuleVersion("ZELKAUDIO", "", ZELK_VERSION);

}  // namespace
#endif
