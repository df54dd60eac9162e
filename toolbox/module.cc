// Announces the module to the host when the plug-in is loaded.

#include "Object.h"

#ifdef ZELK_HOST_HAS_MODULE_VERSION
namespace {

const int moduleRegistered = FD::Object::setModuleVersion("ZELKAUDIO", "", ZELK_VERSION);

}  // namespace
#endif
