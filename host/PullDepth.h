#pragma once

#include "Node.h"

namespace FD {
inline namespace zelk {

/// Counts how deep nodes are pulling each other, as long as it lives. Throws new NodeException when
/// the depth passes what a stack surely carries, which only links in a circle bring about.
class PullDepth {
 public:
  explicit PullDepth(Node* node);
  ~PullDepth();
  PullDepth(const PullDepth&) = delete;
  PullDepth& operator=(const PullDepth&) = delete;

  static constexpr int LIMIT = 1000;
};

}  // namespace zelk
}  // namespace FD
