#include "Iterator.h"

#include <fmt/format.h>

#include <utility>

#include "FrozenNodeException.h"

namespace FD {
inline namespace zelk {

Iterator::Iterator(std::string nodeName, const ParameterSet& params)
    : Network(std::move(nodeName), params), condition(new Collector("condition", ParameterSet())) {
  if (parameters.exist("DOWHILE")) doWhile = dereference_cast<bool>(parameters.get("DOWHILE"));
}

void Iterator::bindCondition(const std::string& nodeName, const std::string& terminal) {
  condition->connectToNode("CONDITION", &getNodeNamed(nodeName), terminal);
}

ObjectRef Iterator::getOutput(int outputId, int count) {
  if (running) {
    throw new FrozenNodeException(this, "The loop needs its own result; the links form a circle",
                                  "Iterator.cc", __LINE__);
  }
  if (count != outerCount) {
    if (used) reset();
    // What a loop that failed leaves behind is no result: whoever asks again makes it run again.
    struct Running {
      Iterator& loop;
      bool done = false;
      ~Running() {
        loop.running = false;
        if (!done) loop.outerCount = -1;
      }
    } guard{*this};
    running = true;
    used = true;
    outerCount = count;
    run();
    guard.done = true;
  }
  return results.at(static_cast<std::size_t>(outputId));
}

void Iterator::run() {
  results.assign(static_cast<std::size_t>(getOutputCount()), nilObject);
  for (int frame = 0; doWhile || conditionHolds(frame); ++frame) {
    for (std::size_t i = 0; i < results.size(); ++i) {
      results[i] = sink->getOutput(static_cast<int>(i), frame);
    }
    if (onFrame && !onFrame(frame)) break;
    if (doWhile && !conditionHolds(frame)) break;
  }
}

bool Iterator::conditionHolds(int frame) {
  const ObjectRef result = condition->getOutput(0, frame);
  if (const auto* holds = dynamic_cast<const Bool*>(result.get())) return holds->val();
  throw new FrozenNodeException(
      this,
      fmt::format("The condition at frame {} is {}; expected a Bool", frame,
                  result.isNil() ? "no object" : result->className()),
      "Iterator.cc", __LINE__);
}

// What the outer network looks back or ahead counts outer frames. Inside, every output and the
// condition are pulled at the loop's newest frame only.
void Iterator::request(int, const ParameterSet&) {
  for (int i = 0; i < getOutputCount(); ++i) sink->request(i, ParameterSet());
  condition->request(0, ParameterSet());
}

void Iterator::reset() {
  Network::reset();
  results.clear();
  used = false;
  outerCount = -1;
}

ObjectRef Iterator::pullInput(int inputId, int) { return Network::pullInput(inputId, outerCount); }

void Iterator::requestInput(int inputId, const ParameterSet&) {
  Network::requestInput(inputId, ParameterSet());
}

}  // namespace zelk
}  // namespace FD
