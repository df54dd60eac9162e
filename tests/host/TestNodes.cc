#include "TestNodes.h"

#include <stdexcept>

#include "NodeFactory.h"

using namespace FD;

int stopCalls = 0;

namespace {

/// A node with one input, IN, of ints.
class WithInput : public BufferedNode {
 public:
  WithInput(const std::string& nodeName, const ParameterSet& params)
      : BufferedNode(nodeName, params) {
    addInput("IN");
    addOutput("OUTPUT");
  }

 protected:
  int in(int count) { return dereference_cast<int>(getInput(0, count)); }
};

/// OUTPUT(count) = the sum of IN over all counts so far. Stateful, so in order.
class RunningSum : public WithInput {
 public:
  RunningSum(const std::string& nodeName, const ParameterSet& params)
      : WithInput(nodeName, params) {
    inOrder = true;
  }
  void reset() override {
    sum = 0;
    BufferedNode::reset();
  }
  void stop() override { ++stopCalls; }

 private:
  void calculate(int, int count, Buffer& out) override {
    out[count] = ObjectRef(new Counted(sum += in(count)));
  }
  int sum = 0;
};

/// OUTPUT(count) = IN(count − 2) + … + IN(count + 1), counts below 0 left out.
class Window : public WithInput {
 public:
  Window(const std::string& nodeName, const ParameterSet& params) : WithInput(nodeName, params) {
    inputsCache[0].lookBack = 2;
    inputsCache[0].lookAhead = 1;
  }

 private:
  void calculate(int, int count, Buffer& out) override {
    int sum = 0;
    for (int c = std::max(count - 2, 0); c <= count + 1; ++c) sum += in(c);
    out[count] = ObjectRef(new Counted(sum));
  }
};

/// OUTPUT = IN, until the count AT, where it throws what KIND says.
class Thrower : public WithInput {
 public:
  Thrower(const std::string& nodeName, const ParameterSet& params)
      : WithInput(nodeName, params),
        at(dereference_cast<int>(parameters.get("AT"))),
        kind(object_cast<String>(parameters.get("KIND"))) {
    if (at < 0) throwIt();
  }
  void initialize() override {
    if (kind == "initialize") throw std::runtime_error("not ready");
    BufferedNode::initialize();
  }
  void cleanupNotify() override {
    if (kind == "cleanup") throw std::runtime_error("disk full");
  }

 private:
  void calculate(int, int count, Buffer& out) override {
    if (count == at) throwIt();
    out[count] = getInput(0, count);
  }
  void throwIt() {
    if (kind == "framework") throw new NodeException(this, "broken", "thrower.cc", 12);
    if (kind == "standard") throw std::runtime_error("broken, too");
    if (kind == "cast") object_cast<String>(TrueObject);
    if (kind == "other") throw 42;
  }
  int at;
  std::string kind;
};

template <class T>
int registerType(const char* name) {
  return Node::addFactory(name, new NodeFactory<T>(name));
}

[[maybe_unused]] const int registered = registerType<RunningSum>("RunningSum") +
                                        registerType<Window>("Window") +
                                        registerType<Thrower>("Thrower");

}  // namespace
