#include "BufferedNode.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "FrozenNodeException.h"
#include "NodeFault.h"
#include "PullDepth.h"

namespace FD {
inline namespace zelk {

namespace {

// A request raises `length` to the value of its parameter. Says whether it changed.
bool raise(int& length, const ParameterSet& req, const char* name) {
  if (!req.exist(name)) return false;
  const int wanted = dereference_cast<int>(req.get(name));
  if (wanted <= length) return false;
  length = wanted;
  return true;
}

}  // namespace

BufferedNode::BufferedNode(std::string nodeName, const ParameterSet& params)
    : Node(std::move(nodeName), params) {}

int BufferedNode::addInput(const std::string& inputName) {
  const int id = Node::addInput(inputName);
  inputsCache.resize(inputs.size());
  return id;
}

int BufferedNode::addOutput(const std::string& outputName) {
  const int id = Node::addOutput(outputName);
  outputs.resize(outputNames.size());
  outputs.back().buffer = RCPtr<Buffer>(new Buffer(1));
  return id;
}

// ---- requests

void BufferedNode::request(int outputId, const ParameterSet& req) {
  const PullDepth depth(this);
  OutputCache& output = outputs.at(static_cast<std::size_t>(outputId));
  bool changed = raise(output.lookAhead, req, "LOOKAHEAD");
  changed = raise(output.lookBack, req, "LOOKBACK") || changed;
  if (req.exist("INORDER")) inOrder = true;

  // A request that changes nothing is not passed on: a node that many paths lead to is not asked
  // once per path, and requests along links in a circle come to an end.
  if (passingRequests || (requestsPassed && !changed)) return;
  requestsPassed = true;
  passingRequests = true;
  passRequestsOn();
  passingRequests = false;
}

void BufferedNode::passRequestsOn() {
  int lookAhead = 0;
  int lookBack = 0;
  for (const OutputCache& output : outputs) {
    lookAhead = std::max(lookAhead, output.lookAhead);
    lookBack = std::max(lookBack, output.lookBack);
  }
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    if (!inputs[i].node) continue;
    ParameterSet needs;
    needs.add("LOOKAHEAD", ObjectRef(Int::alloc(inputsCache[i].lookAhead + lookAhead)));
    needs.add("LOOKBACK", ObjectRef(Int::alloc(inputsCache[i].lookBack + lookBack)));
    inputs[i].node->request(inputs[i].outputID, needs);
  }
}

void BufferedNode::initialize() {
  reset();
  Node::initialize();
}

void BufferedNode::reset() {
  for (OutputCache& output : outputs) {
    const int length = output.lookAhead + output.lookBack + 1;
    output.buffer = RCPtr<Buffer>(new Buffer(static_cast<std::size_t>(length)));
  }
  lastInOrder = -1;
  Node::reset();
}

// ---- results

ObjectRef BufferedNode::getOutput(int outputId, int count) {
  OutputCache& output = outputs.at(static_cast<std::size_t>(outputId));
  for (const Calculation* c = running; c; c = c->outer) {
    if (c->outputId == outputId && (c->count == count || (inOrder && count > c->count))) {
      throw new FrozenNodeException(
          this,
          fmt::format("Output {} at count {} needs itself; the links form a circle",
                      outputNames[static_cast<std::size_t>(outputId)], count),
          "BufferedNode.cc", __LINE__);
    }
  }
  if (output.buffer->isValid(count)) return output.buffer->get(count);

  const PullDepth depth(this);
  int current = count;
  try {
    if (inOrder) {
      while (lastInOrder < count) {
        current = lastInOrder + 1;
        calculateOne(outputId, current);
        lastInOrder = current;
      }
    } else {
      calculateOne(outputId, count);
    }
    return output.buffer->get(count);
  } catch (BaseException* e) {
    noteFault(e, *this, current);
    throw e->add(new FrozenNodeException(this, "Exception caught in BufferedNode::getOutput",
                                         "BufferedNode.cc", __LINE__));
  } catch (...) {
    noteCurrentFault(*this, current);
    throw;
  }
}

void BufferedNode::calculateOne(int outputId, int count) {
  Calculation call{outputId, count, running};
  struct Restore {
    Calculation*& slot;
    Calculation* outer;
    ~Restore() { slot = outer; }
  } restore{running, running};
  running = &call;
  calculate(outputId, count, *outputs[static_cast<std::size_t>(outputId)].buffer);
}

}  // namespace zelk
}  // namespace FD
