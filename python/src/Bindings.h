#pragma once

#include <pybind11/pybind11.h>

/// What each file of this folder adds to the module.
void bindSeparator(pybind11::module_& module);
