#include "ToolboxNode.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

ToolboxNode::ToolboxNode(const NodeSpec& nodeSpec, std::string nodeName,
                         const FD::ParameterSet& params)
    : FD::BufferedNode(std::move(nodeName), params), spec(nodeSpec) {
  for (const NodeSpec::Input& input : spec.inputs) {
    if (!input.isOptional) addInput(input.name);
  }
  for (const char* output : spec.outputs) addOutput(output);
}

// ---- terminals

int ToolboxNode::numberOf(const char* inputName) const {
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    if (inputs[i].name == inputName) return static_cast<int>(i);
  }
  return -1;
}

int ToolboxNode::translateInput(std::string inputName) {
  const int number = numberOf(inputName.c_str());
  if (number >= 0) return number;
  for (const NodeSpec::Input& input : spec.inputs) {
    if (inputName == input.name) return addInput(inputName);
  }
  throw new FrozenNodeException(this, inputName + " is not supported.", "ToolboxNode.cc", __LINE__);
}

bool ToolboxNode::isConnected(const char* inputName) const {
  const int number = numberOf(inputName);
  return number >= 0 && inputs[static_cast<std::size_t>(number)].node != nullptr;
}

FD::ObjectRef ToolboxNode::pull(const char* inputName, int count) {
  if (!isConnected(inputName)) {
    throw new FrozenNodeException(this, std::string(inputName) + " is not connected.",
                                  "ToolboxNode.cc", __LINE__);
  }
  return getInput(numberOf(inputName), count);
}

std::set<int> ToolboxNode::pullIds(const char* inputName, int count) {
  const FD::ObjectRef list = pull(inputName, count);
  std::set<int> ids;
  for (const FD::ObjectRef& source : FD::object_cast<SourceList>(list)) {
    ids.insert(FD::object_cast<FD::Source>(source).id);
  }
  return ids;
}

void ToolboxNode::setOutput(const char* outputName, int count, const FD::ObjectRef& value) {
  const auto id = static_cast<std::size_t>(translateOutput(outputName));
  (*outputs[id].buffer)[count] = value;
}

// ---- parameters

const char* ToolboxNode::defaultOf(const char* parameter) const {
  for (const NodeSpec::Parameter& entry : spec.parameters) {
    if (std::strcmp(entry.name, parameter) == 0) return entry.defaultValue;
  }
  return nullptr;
}

int ToolboxNode::intParameter(const char* parameter) const {
  const char* value = defaultOf(parameter);
  if (value && !parameters.exist(parameter)) return std::stoi(value);
  return FD::dereference_cast<int>(parameters.get(parameter));
}

float ToolboxNode::floatParameter(const char* parameter) const {
  const char* value = defaultOf(parameter);
  if (value && !parameters.exist(parameter)) return std::stof(value);
  return FD::dereference_cast<float>(parameters.get(parameter));
}

bool ToolboxNode::boolParameter(const char* parameter) const {
  const char* value = defaultOf(parameter);
  if (value && !parameters.exist(parameter)) return std::strcmp(value, "true") == 0;
  return FD::dereference_cast<bool>(parameters.get(parameter));
}

std::string ToolboxNode::stringParameter(const char* parameter) const {
  const char* value = defaultOf(parameter);
  if (value && !parameters.exist(parameter)) return value;
  return FD::object_cast<FD::String>(parameters.get(parameter));
}
