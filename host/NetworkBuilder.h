#pragma once

#include <string>
#include <vector>

#include "Iterator.h"
#include "Network.h"
#include "NetworkDocument.h"
#include "ParameterSet.h"

namespace FD {
inline namespace zelk {

/// Builds a network of a document with its nodes, its links and the networks it includes. An input
/// may stay unlinked: it is for the node to complain. params are the network's parameters, which
/// "subnet_param" values refer to. onFrame (may be empty) is called after each frame of every loop
/// that does not run inside another loop, with the frame's number; the loop ends when it answers
/// false.
///
/// Throws DocumentError for anything in the document that cannot be built, what a node's
/// constructor throws included.
RCPtr<Network> buildNetwork(const NetworkDocument& document, const std::string& name,
                            const ParameterSet& params, const Iterator::FrameHook& onFrame = {});

/// The parameters of MAIN for a run with these arguments: ARG1, ARG2, … and "string:ARG1", … as
/// String, and "int:ARG1" (Int) and "float:ARG1" (Float) for the arguments that are such numbers.
ParameterSet argumentParameters(const std::vector<std::string>& arguments);

}  // namespace zelk
}  // namespace FD
