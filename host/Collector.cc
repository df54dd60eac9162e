#include "Collector.h"

#include <utility>

#include "PullDepth.h"

namespace FD {
inline namespace zelk {

Collector::Collector(std::string nodeName, const ParameterSet& params)
    : Node(std::move(nodeName), params) {}

int Collector::translateInput(std::string inputName) {
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    if (inputs[i].name == inputName) return static_cast<int>(i);
  }
  addOutput(inputName);
  return addInput(inputName);
}

ObjectRef Collector::getOutput(int outputId, int count) { return getInput(outputId, count); }

void Collector::request(int outputId, const ParameterSet& req) {
  const PullDepth depth(this);
  const NodeInput& input = inputs.at(static_cast<std::size_t>(outputId));
  if (input.node) input.node->request(input.outputID, req);
}

}  // namespace zelk
}  // namespace FD
