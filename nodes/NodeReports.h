#pragma once

#include <exception>
#include <string>

#include "Node.h"
#include "bf/BF.h"
#include "nodes/FrameConversion.h"

/// What a separation node tells a person on standard error, a line each that begins with the node's
/// name and type. Engine exceptions carry no text, and hosts tell nothing of them but
/// "std::exception": whoever catches one reports it and throws it on.

/// An engine's exception at a frame: its class, and the shapes of everything that has to fit.
void reportEngineFault(FD::Node& node, const char* type, int count, const std::exception& fault,
                       const SpectrumMatrix& frame, const BF::BF& engine);

/// An engine's exception at its construction: its class, and what was expected of the parameters.
void reportEngineFault(FD::Node& node, const char* type, const std::exception& fault,
                       const std::string& expected);

/// A database whose number of bins is not that of the frames, LENGTH/2+1; writes nothing for
/// others.
void warnOfOtherBins(FD::Node& node, const char* type, const std::string& path,
                     const BF::TransformFunctionDatabase& database, int bins);
