#pragma once

#include <pybind11/pybind11.h>

// What each file of this folder adds to the module.
void bindEngine(pybind11::module_& module);
void bindMixing(pybind11::module_& module);
void bindScoring(pybind11::module_& module);
void bindSeparator(pybind11::module_& module);
