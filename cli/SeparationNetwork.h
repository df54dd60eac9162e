#pragma once

#include "NetworkDocument.h"
#include "cli/SeparationSettings.h"

/// The network that carries the separation out: MAIN with the loop over the frames.
FD::NetworkDocument separationNetwork(const SeparationSettings& settings);
