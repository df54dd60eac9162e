// A node type that throws each kind of exception and hands out an object of a type the host's tests
// know, across the border between shared objects.
#include <complex>
#include <stdexcept>
#include <string>

#include "BufferedNode.h"
#include "Matrix.h"
#include "NodeFactory.h"

extern int testPluginNeeded;

namespace {

class PluginNode : public FD::BufferedNode {
 public:
  PluginNode(std::string name, FD::ParameterSet params) : FD::BufferedNode(name, params) {
    addOutput("OUTPUT");
  }

 private:
  void calculate(int, int count, FD::Buffer& out) override {
    if (count == 1) throw new FD::NodeException(this, "plug-in says no", "plugin.cc", 7);
    if (count == 2) throw std::out_of_range("plug-in out of range");
    auto* matrix = new FD::Matrix<std::complex<float>>(1, 2);
    (*matrix)(0, 1) = static_cast<float>(testPluginNeeded + 2);
    out[count] = FD::ObjectRef(matrix);
  }
};

[[maybe_unused]] const int registered =
    FD::Node::addFactory("PluginNode", new FD::NodeFactory<PluginNode>("PluginNode"));

}  // namespace
