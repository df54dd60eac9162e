// The part of the package that is not Python: the library's classes, as the package calls them. The
// documented interface is that of the Python files.
#include <pybind11/pybind11.h>

#include "python/src/Bindings.h"
#include "python/src/Database.h"
#include "python/src/Errors.h"
#include "python/src/Sources.h"

PYBIND11_MODULE(_core, module) {
  registerErrors(module);
  bindDatabase(module);
  bindScene(module);
  bindSeparator(module);
  bindEngine(module);
  bindMixing(module);
  bindScoring(module);
  module.attr("__version__") = ZELK_VERSION;
}
