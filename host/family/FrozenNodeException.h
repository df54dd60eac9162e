#pragma once

#include <string>

#include "Node.h"

/// A NodeException that may outlive its node, thrown as a pointer like every exception of the host.
///
/// A host keeps what it catches and asks the exception's node for its name only when it reports.
/// The node is gone by then if its constructor threw. Freezing makes the exception take along what
/// it says of the node while the node still lives.
class FrozenNodeException : public FD::NodeException {
 public:
  FrozenNodeException(FD::Node* faultyNode, const std::string& text, const char* sourceFile,
                      int sourceLine)
      : FD::NodeException(faultyNode, text, sourceFile, sourceLine) {
    FD::NodeException::freeze();
  }
};
