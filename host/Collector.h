#pragma once

#include <string>

#include "Node.h"

namespace FD {
inline namespace zelk {

/// Forwards each of its inputs as its output of the same name. A network's sink is a collector: its
/// outputs are the network's.
class Collector : public Node {
 public:
  Collector(std::string name, const ParameterSet& params);

  /// A name not known yet becomes a new input, and an output of the same number.
  int translateInput(std::string inputName) override;
  ObjectRef getOutput(int outputId, int count) override;
  void request(int outputId, const ParameterSet& req) override;

  int getOutputCount() const { return static_cast<int>(outputNames.size()); }
};

}  // namespace zelk
}  // namespace FD
