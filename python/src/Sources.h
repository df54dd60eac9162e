#pragma once

#include <pybind11/pybind11.h>

#include <vector>

#include "geometry/Location.h"

/// A list of zelksss.Source as the separation has it. Refuses anything else by an error that names
/// the argument `sources`.
std::vector<BF::SourceLocation> sourceList(pybind11::handle sources);

/// Binds Source and Scene.
void bindScene(pybind11::module_& module);
