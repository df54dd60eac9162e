#include "Network.h"

#include <utility>

#include "FrozenNodeException.h"
#include "NodeFault.h"
#include "PullDepth.h"

namespace FD {
inline namespace zelk {

/// Hands the network's inputs to the nodes inside: one output per input, of the same number.
class Network::NetworkInputs : public Node {
 public:
  explicit NetworkInputs(Network& owner) : Node(owner.getName(), ParameterSet()), network(owner) {
    setType(owner.getType());
  }

  void declare(const std::string& inputName) { addOutput(inputName); }

  ObjectRef getOutput(int outputId, int count) override {
    return network.pullInput(outputId, count);
  }
  void request(int outputId, const ParameterSet& req) override {
    const PullDepth depth(this);
    network.requestInput(outputId, req);
  }

 private:
  Network& network;
};

namespace {

// Runs one node's step before or after the frames, noting the node in what it throws.
template <class Step>
void stepOutsideFrames(Node& node, Step step) {
  try {
    step();
  } catch (BaseException* e) {
    noteFault(e, node, -1);
    throw;
  } catch (...) {
    noteCurrentFault(node, -1);
    throw;
  }
}

}  // namespace

Network::Network(std::string nodeName, const ParameterSet& params)
    : Node(std::move(nodeName), params), sink(new Collector("sink", ParameterSet())) {}

Network::~Network() {
  while (notified < nodes.size()) {
    try {
      Network::cleanupNotify();
    } catch (BaseException* e) {
      delete e;
    } catch (...) {  // nothing may leave a destructor
    }
  }
}

// ---- building

void Network::addNode(const RCPtr<Node>& node) {
  if (!nodesByName.emplace(node->getName(), node.get()).second) {
    throw new FrozenNodeException(this, "Two nodes are named " + node->getName(), "Network.cc",
                                  __LINE__);
  }
  nodes.push_back(node);
}

Node& Network::getNodeNamed(const std::string& nodeName) const {
  const auto found = nodesByName.find(nodeName);
  if (found == nodesByName.end()) {
    throw new FrozenNodeException(nullptr, "There is no node named " + nodeName, "Network.cc",
                                  __LINE__);
  }
  return *found->second;
}

void Network::connect(const std::string& toNode, const std::string& input,
                      const std::string& fromNode, const std::string& output) {
  getNodeNamed(toNode).connectToNode(input, &getNodeNamed(fromNode), output);
}

void Network::declareInput(const std::string& inputName) {
  for (const NodeInput& input : inputs) {
    if (input.name == inputName) return;
  }
  if (networkInputs.isNil()) networkInputs = RCPtr<NetworkInputs>(new NetworkInputs(*this));
  addInput(inputName);
  networkInputs->declare(inputName);
}

void Network::bindInput(const std::string& inputName, const std::string& nodeName,
                        const std::string& terminal) {
  declareInput(inputName);
  getNodeNamed(nodeName).connectToNode(terminal, networkInputs.get(), inputName);
}

void Network::bindOutput(const std::string& outputName, const std::string& nodeName,
                         const std::string& terminal) {
  sink->connectToNode(outputName, &getNodeNamed(nodeName), terminal);
}

// ---- as a node

int Network::translateOutput(std::string outputName) {
  return sink->translateOutput(std::move(outputName));
}

bool Network::hasOutput(int outputId) const { return sink->hasOutput(outputId); }

ObjectRef Network::getOutput(int outputId, int count) { return sink->getOutput(outputId, count); }

void Network::request(int outputId, const ParameterSet& req) { sink->request(outputId, req); }

ObjectRef Network::pullInput(int inputId, int count) { return getInput(inputId, count); }

void Network::requestInput(int inputId, const ParameterSet& req) {
  const NodeInput& input = inputs.at(static_cast<std::size_t>(inputId));
  if (input.node) input.node->request(input.outputID, req);
}

void Network::initialize() {
  Node::initialize();
  for (const auto& node : nodes) {
    stepOutsideFrames(*node, [&] { node->initialize(); });
  }
}

void Network::reset() {
  Node::reset();
  for (const auto& node : nodes) {
    stepOutsideFrames(*node, [&] { node->reset(); });
  }
}

void Network::verifyConnect() {
  Node::verifyConnect();
  for (const auto& node : nodes) node->verifyConnect();
}

void Network::stop() {
  for (const auto& node : nodes) {
    stepOutsideFrames(*node, [&] { node->stop(); });
  }
}

void Network::cleanupNotify() {
  while (notified < nodes.size()) {
    Node& node = *nodes[notified++];
    stepOutsideFrames(node, [&] { node.cleanupNotify(); });
  }
}

}  // namespace zelk
}  // namespace FD
