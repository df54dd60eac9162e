#pragma once

#include <pybind11/pybind11.h>

/// Errors of the library become zelksss.Error, with field, actual and expected where it says them
/// apart; the fields of Separation::Settings get the names that they have in Python.
void registerErrors(const pybind11::module_& module);
