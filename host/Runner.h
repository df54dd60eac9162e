#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "Iterator.h"
#include "NetworkDocument.h"

namespace FD {
inline namespace zelk {

/// Runs a document: builds its network MAIN with the arguments as parameters ARG1, ARG2, …; sends
/// the requests and initializes; pulls output 0, 1, … at count 0 and prints each on out, one line
/// per output; notifies the nodes of the end and destroys them.
///
/// onFrame, if given, is called after each frame of the outermost loops, with the frame's number;
/// to end the run after that frame it answers false, which is no error, and every node is told by
/// stop() once.
///
/// Returns 0, or 1 after an error, which is reported on err: what is wrong with the document, or
/// which node (name and type) threw what at which frame.
int runNetwork(const NetworkDocument& document, const std::vector<std::string>& arguments,
               std::ostream& out, std::ostream& err, const Iterator::FrameHook& onFrame = {});

/// The same for a document file. Plug-ins must have been loaded before (ToolboxLoader.h).
int runNetworkFile(const std::filesystem::path& path, const std::vector<std::string>& arguments,
                   std::ostream& out, std::ostream& err, const Iterator::FrameHook& onFrame = {});

}  // namespace zelk
}  // namespace FD
