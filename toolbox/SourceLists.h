#pragma once

#include <vector>

#include "nodes/DeclaredNode.h"
#include "scene/Scene.h"

/// The sources as a SourceList.
FD::ObjectRef sourceList(const std::vector<Audio::PlacedSource>& placed);
