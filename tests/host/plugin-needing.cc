// A node type whose value comes from the other plug-in.
#include "NodeFactory.h"
#include "net_types.h"

extern int testPluginNeeded;

namespace {

class PluginNode : public FD::Node {
 public:
  PluginNode(const std::string& name, const FD::ParameterSet& params) : FD::Node(name, params) {
    addOutput("OUTPUT");
  }
  FD::ObjectRef getOutput(int, int) override {
    return FD::ObjectRef(FD::Int::alloc(testPluginNeeded + 2));
  }
};

[[maybe_unused]] const int registered =
    FD::Node::addFactory("PluginNode", new FD::NodeFactory<PluginNode>("PluginNode"));

}  // namespace
