#include "Node.h"

#include <algorithm>
#include <utility>

#include "FrozenNodeException.h"
#include "NodeFactory.h"
#include "NodeFault.h"
#include "PullDepth.h"

namespace FD {
inline namespace zelk {

Node::Node(std::string nodeName, const ParameterSet& params)
    : parameters(params), ownName(std::move(nodeName)) {}

// ---- terminals

int Node::addInput(const std::string& inputName) {
  for (const NodeInput& input : inputs) {
    if (input.name == inputName) {
      throw new FrozenNodeException(this, "Input " + inputName + " is declared twice", "Node.cc",
                                    __LINE__);
    }
  }
  inputs.push_back({-1, nullptr, inputName});
  return static_cast<int>(inputs.size()) - 1;
}

int Node::addOutput(const std::string& outputName) {
  if (std::find(outputNames.begin(), outputNames.end(), outputName) != outputNames.end()) {
    throw new FrozenNodeException(this, "Output " + outputName + " is declared twice", "Node.cc",
                                  __LINE__);
  }
  outputNames.push_back(outputName);
  return static_cast<int>(outputNames.size()) - 1;
}

// By value, as the interface has it.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int Node::translateInput(std::string inputName) {
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    if (inputs[i].name == inputName) return static_cast<int>(i);
  }
  throw new FrozenNodeException(this, "Unknown input " + inputName, "Node.cc", __LINE__);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param)
int Node::translateOutput(std::string outputName) {
  for (std::size_t i = 0; i < outputNames.size(); ++i) {
    if (outputNames[i] == outputName) return static_cast<int>(i);
  }
  throw new FrozenNodeException(this, "Unknown output " + outputName, "Node.cc", __LINE__);
}

bool Node::hasOutput(int outputId) const {
  return outputId >= 0 && outputId < static_cast<int>(outputNames.size());
}

void Node::connectToNode(std::string in, Node* from, std::string out) {
  const int outputId = from->translateOutput(std::move(out));
  const int inputId = translateInput(std::move(in));
  connectToNode(static_cast<unsigned>(inputId), from, static_cast<unsigned>(outputId));
}

void Node::connectToNode(unsigned int in, Node* from, unsigned int out) {
  if (in >= inputs.size() || !from->hasOutput(static_cast<int>(out))) {
    throw new FrozenNodeException(this, "Link to a terminal that does not exist", "Node.cc",
                                  __LINE__);
  }
  inputs[in].node = from;
  inputs[in].outputID = static_cast<int>(out);
}

// ---- the life of a node

void Node::request(int, const ParameterSet& req) {
  if (requesting) return;  // links in a circle lead back here
  const PullDepth depth(this);
  requesting = true;
  for (const NodeInput& input : inputs) {
    if (input.node) input.node->request(input.outputID, req);
  }
  requesting = false;
}

void Node::initialize() {}
void Node::reset() {}
void Node::stop() {}
void Node::cleanupNotify() {}

void Node::verifyConnect() {
  for (const NodeInput& input : inputs) {
    if (!input.node) {
      throw new FrozenNodeException(this, "Input " + input.name + " is not connected", "Node.cc",
                                    __LINE__);
    }
  }
}

ObjectRef Node::getInput(int inputId, int count) {
  const NodeInput& input = inputs.at(static_cast<std::size_t>(inputId));
  if (!input.node) {
    throw new FrozenNodeException(this, "Input " + input.name + " is not connected", "Node.cc",
                                  __LINE__);
  }
  const PullDepth depth(this);
  try {
    return input.node->getOutput(input.outputID, count);
  } catch (BaseException* e) {
    noteFault(e, *input.node, count);
    throw;
  } catch (...) {
    noteCurrentFault(*input.node, count);
    throw;
  }
}

void Node::printOn(std::ostream& out) const { out << "<" << className() << " " << ownName << " >"; }

// ---- dictionaries

// Made on first use and never destroyed: plug-ins fill them from their static initialisers.
std::map<std::string, _NodeFactory*>& Node::factoryDictionary() {
  static auto& factories = *new std::map<std::string, _NodeFactory*>;
  return factories;
}

std::map<std::string, char**>& Node::XPMDictionary() {
  static auto& icons = *new std::map<std::string, char**>;
  return icons;
}

int Node::addFactory(const std::string& typeName, _NodeFactory* factory) {
  if (!factoryDictionary().emplace(typeName, factory).second) {
    std::cerr << "Node type " << typeName << " is registered twice; the first one stays\n";
    delete factory;
  }
  return 0;
}

int Node::addXPM(const std::string& typeName, char** icon) {
  XPMDictionary()[typeName] = icon;
  return 0;
}

_NodeFactory* Node::getFactoryNamed(const std::string& typeName) {
  const auto found = factoryDictionary().find(typeName);
  return found == factoryDictionary().end() ? nullptr : found->second;
}

// ---- errors

NodeException::NodeException(Node* faulty, std::string text, const char* sourceFile, int sourceLine)
    : node(faulty), message(std::move(text)), file(sourceFile), line(sourceLine) {}

void NodeException::freeze() {
  if (!node) return;
  nodeName = node->getName();
  nodeType = node->getType();
  node = nullptr;
}

void NodeException::print(std::ostream& out) {
  freeze();
  out << file << ", line " << line << ": ";
  if (!nodeName.empty()) out << "node " << nodeName;
  if (!nodeType.empty()) out << " (type " << nodeType << ")";
  if (!nodeName.empty() || !nodeType.empty()) out << ": ";
  out << message << "\n";
}

}  // namespace zelk
}  // namespace FD
