// The node types that any network needs; the host registers them itself.

#include <functional>
#include <optional>
#include <string>

#include "BufferedNode.h"
#include "FrozenNodeException.h"
#include "NodeFactory.h"

namespace FD {
inline namespace zelk {

namespace {

/// VALUE: the parameter VALUE, at every count.
class Constant : public Node {
 public:
  Constant(const std::string& nodeName, const ParameterSet& params)
      : Node(nodeName, params), value(parameters.get("VALUE")) {
    addOutput("VALUE");
  }
  ObjectRef getOutput(int, int) override { return value; }

 private:
  ObjectRef value;
};

/// OUTPUT: the count as an Int.
class IterCount : public Node {
 public:
  IterCount(const std::string& nodeName, const ParameterSet& params) : Node(nodeName, params) {
    addOutput("OUTPUT");
  }
  ObjectRef getOutput(int, int count) override { return ObjectRef(Int::alloc(count)); }
};

/// OUTPUT: the object of INPUT, unchanged.
class NOP : public Node {
 public:
  NOP(const std::string& nodeName, const ParameterSet& params) : Node(nodeName, params) {
    addInput("INPUT");
    addOutput("OUTPUT");
  }
  ObjectRef getOutput(int, int count) override { return getInput(0, count); }
};

/// OUTPUT: the object of INPUT, which is also printed on standard output, one line per count.
class Print : public BufferedNode {
 public:
  Print(const std::string& nodeName, const ParameterSet& params) : BufferedNode(nodeName, params) {
    addInput("INPUT");
    addOutput("OUTPUT");
  }

 protected:
  void calculate(int, int count, Buffer& out) override {
    out[count] = getInput(0, count);
    std::cout << out.get(count) << "\n";
  }
};

std::optional<double> numberIn(const ObjectRef& object) {
  if (const auto* i = dynamic_cast<const Int*>(object.get())) return i->val();
  if (const auto* f = dynamic_cast<const Float*>(object.get())) return f->val();
  if (const auto* d = dynamic_cast<const Double*>(object.get())) return d->val();
  return std::nullopt;
}

/// OUTPUT: whether INPUT1 stands in the relation to INPUT2, as a Bool. Both are numbers (Int, Float
/// or Double, also mixed) or both are Strings.
template <template <class> class Relation>
class Comparison : public BufferedNode {
 public:
  Comparison(const std::string& nodeName, const ParameterSet& params)
      : BufferedNode(nodeName, params) {
    addInput("INPUT1");
    addInput("INPUT2");
    addOutput("OUTPUT");
  }

 protected:
  void calculate(int, int count, Buffer& out) override {
    const ObjectRef a = getInput(0, count);
    const ObjectRef b = getInput(1, count);
    out[count] = holds(a, b) ? TrueObject : FalseObject;
  }

 private:
  bool holds(const ObjectRef& a, const ObjectRef& b) {
    const auto x = numberIn(a);
    const auto y = numberIn(b);
    if (x && y) return Relation<double>()(*x, *y);
    const auto* s = dynamic_cast<const String*>(a.get());
    const auto* t = dynamic_cast<const String*>(b.get());
    if (s && t) return Relation<std::string>()(*s, *t);
    throw new FrozenNodeException(
        this,
        "Cannot compare " + nameOf(a) + " with " + nameOf(b) + ": expected numbers or strings",
        "GeneralNodes.cc", __LINE__);
  }

  static std::string nameOf(const ObjectRef& object) {
    return object.isNil() ? "no object" : object->className();
  }
};

template <class T>
int registerType(const char* name) {
  return Node::addFactory(name, new NodeFactory<T>(name)) + Node::addXPM(name, nullptr);
}

[[maybe_unused]] const int registered = registerType<Constant>("Constant") +
                                        registerType<IterCount>("IterCount") +
                                        registerType<NOP>("NOP") + registerType<Print>("Print") +
                                        registerType<Comparison<std::less>>("Smaller") +
                                        registerType<Comparison<std::greater>>("Greater") +
                                        registerType<Comparison<std::equal_to>>("Equal");

}  // namespace

}  // namespace zelk
}  // namespace FD
