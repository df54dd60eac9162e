// Announces the module to the host when the library is loaded. This unit is linked before the node
// types', so that the host knows the module before its types.

#include "Object.h"

#ifdef ZELK_HOST_HAS_MODULE_VERSION
namespace {

const int moduleRegistered = FD::Object::setModuleVersion("ZELKSSS", "", ZELK_VERSION);

}  // namespace
#endif
