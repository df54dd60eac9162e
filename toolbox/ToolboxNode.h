#pragma once

#include <set>
#include <string>

#include "dsp/DataError.h"
#include "nodes/DeclaredNode.h"

/// What the nodes of the toolbox share.
class ToolboxNode : public DeclaredNode {
 protected:
  using DeclaredNode::DeclaredNode;

  /// What action returns. What it throws as DataError is thrown as new FD::NodeException.
  template <class Action>
  auto checked(Action action, int sourceLine = __builtin_LINE()) {
    try {
      return action();
    } catch (const DataError& error) {
      fail(error.what(), sourceLine);
    }
  }

  /// The ids in the SourceList at an input.
  std::set<int> pullIds(const char* inputName, int count);
};
