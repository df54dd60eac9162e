#include "NodeFault.h"

#include <exception>

namespace FD {
inline namespace zelk {

namespace {

struct Fault {
  std::exception_ptr exception;  // keeps the exception alive, so that its address stays its own
  FaultOrigin origin;
};

thread_local Fault lastFault;

}  // namespace

void noteFault(BaseException* e, const Node& node, int count) {
  e->noteOrigin({node.getName(), node.getType(), count});
}

void noteCurrentFault(const Node& node, int count) {
  // The same exception object passes every node on its way up: the first one is where it arose.
  if (lastFault.exception == std::current_exception()) return;
  lastFault = {std::current_exception(), {node.getName(), node.getType(), count}};
}

std::optional<FaultOrigin> takeCurrentFault() {
  std::optional<FaultOrigin> result;
  if (lastFault.exception && lastFault.exception == std::current_exception()) {
    result = lastFault.origin;
  }
  lastFault = {};
  return result;
}

}  // namespace zelk
}  // namespace FD
