#include "PullDepth.h"

#include <fmt/format.h>

#include "FrozenNodeException.h"

namespace FD {
inline namespace zelk {

namespace {

thread_local int pullDepth = 0;

}  // namespace

PullDepth::PullDepth(Node* node) {
  if (pullDepth >= LIMIT) {
    throw new FrozenNodeException(
        node, fmt::format("Pulled through more than {} nodes; the links may form a circle", LIMIT),
        "PullDepth.cc", __LINE__);
  }
  ++pullDepth;
}

PullDepth::~PullDepth() { --pullDepth; }

}  // namespace zelk
}  // namespace FD
