#include "nodes/DeclaredNode.h"

#include <charconv>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "host/family/FrozenNodeException.h"

namespace {

/// The number in a declaration, in whatever language the host runs.
template <class Number>
Number numberIn(std::string_view text) {
  Number value{};
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

}  // namespace

DeclaredNode::DeclaredNode(const NodeSpec& nodeSpec, std::string nodeName,
                           const FD::ParameterSet& params, int sourceLine)
    : FD::BufferedNode(std::move(nodeName), params), spec(nodeSpec), constructorLine(sourceLine) {
  for (const NodeSpec::Input& input : spec.inputs) {
    if (input.need == NodeSpec::NEEDED) addInput(input.name);
  }
  for (const NodeSpec::Output& output : spec.outputs) addOutput(output.name);
}

void DeclaredNode::fail(const std::string& text, int sourceLine) {
  throw new FrozenNodeException(this, text, spec.sourceFile, sourceLine);
}

// ---- terminals

int DeclaredNode::numberOf(const std::string& inputName) const {
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    if (inputs[i].name == inputName) return static_cast<int>(i);
  }
  return -1;
}

int DeclaredNode::translateInput(std::string inputName) {
  const int number = numberOf(inputName);
  if (number >= 0) return number;
  for (const NodeSpec::Input& input : spec.inputs) {
    if (inputName == input.name) return addInput(inputName);
  }
  fail(inputName + " is not supported.", constructorLine);
}

bool DeclaredNode::isConnected(const char* inputName) const {
  const int number = numberOf(inputName);
  if (number < 0) return false;
  const FD::NodeInput& input = inputs[static_cast<std::size_t>(number)];
  return input.node != nullptr && input.outputID >= 0;
}

FD::ObjectRef DeclaredNode::pull(const char* inputName, int count, int sourceLine) {
  if (!isConnected(inputName)) fail(std::string(inputName) + " is not connected.", sourceLine);
  return getInput(numberOf(inputName), count);
}

void DeclaredNode::setOutput(const char* outputName, int count, const FD::ObjectRef& value) {
  const auto id = static_cast<std::size_t>(translateOutput(outputName));
  (*outputs[id].buffer)[count] = value;
}

// ---- parameters

bool DeclaredNode::isGiven(const char* parameter) const { return parameters.exist(parameter); }

// Null: the value is given, or there is no default.
const char* DeclaredNode::defaultOf(const char* parameter, const std::string& type) const {
  const NodeSpec::Parameter* const declared = spec.findParameter(parameter);
  if (!declared || declared->type != type) {
    throw std::logic_error(std::string(spec.type) + "." + parameter + ":" + type);
  }
  return isGiven(parameter) ? nullptr : declared->defaultValue;
}

int DeclaredNode::intParameter(const char* parameter) const {
  const char* const value = defaultOf(parameter, "int");
  return value ? numberIn<int>(value) : FD::dereference_cast<int>(parameters.get(parameter));
}

float DeclaredNode::floatParameter(const char* parameter) const {
  const char* const value = defaultOf(parameter, "float");
  return value ? numberIn<float>(value) : FD::dereference_cast<float>(parameters.get(parameter));
}

bool DeclaredNode::boolParameter(const char* parameter) const {
  const char* const value = defaultOf(parameter, "bool");
  return value ? std::strcmp(value, "true") == 0
               : FD::dereference_cast<bool>(parameters.get(parameter));
}

std::string DeclaredNode::stringParameter(const char* parameter) const {
  const char* const value = defaultOf(parameter, "string");
  if (value) return value;
  return FD::object_cast<FD::String>(parameters.get(parameter));
}

// ---- declarations

std::vector<const NodeSpec*> declaredNodes() {
  std::vector<const NodeSpec*> specs;
  for (const auto& [type, factory] : FD::Node::factoryDictionary()) {
    const auto* declaration = dynamic_cast<const Declaration*>(factory);
    if (declaration) specs.push_back(&declaration->spec());
  }
  return specs;
}
