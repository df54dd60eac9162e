#pragma once

#include <map>
#include <string>
#include <vector>

#include "BaseException.h"
#include "Object.h"
#include "ParameterSet.h"
#include "net_types.h"

namespace FD {
inline namespace zelk {

class Node;
class _NodeFactory;  // NOLINT: the interface's own name

/// One input terminal of a node and what it is linked to.
struct NodeInput {
  int outputID = -1;     ///< output of the linked node; -1: not connected
  Node* node = nullptr;  ///< the linked node, owned by the network; null: not connected
  std::string name;
};

/// A processing step with named inputs and outputs, built from its name and its parameters.
///
/// Results are pulled: whoever needs output `id` of frame `count` calls getOutput, and the node
/// pulls what it needs in turn. Nodes are owned by their Network.
class Node : public Object {
 public:
  Node(std::string name, const ParameterSet& params);
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  const std::string& getName() const { return ownName; }

  /// The object of output outputId at this count.
  virtual ObjectRef getOutput(int outputId, int count) = 0;
  virtual bool hasOutput(int outputId) const;

  /// Number of a terminal. Throws new NodeException for an unknown name. A node may override
  /// translateInput to create an optional input (addInput) when a link asks for it.
  virtual int translateInput(std::string inputName);
  virtual int translateOutput(std::string outputName);

  /// Links input `in` to output `out` of `from`. The first form translates the names and calls the
  /// second. Throws new NodeException for a terminal that does not exist.
  virtual void connectToNode(std::string in, Node* from, std::string out);
  void connectToNode(unsigned int in, Node* from, unsigned int out);

  /// Tells the node how one of its outputs will be used, before initialize(); the node passes on
  /// what it needs of its inputs.
  virtual void request(int outputId, const ParameterSet& req);
  /// Prepares for the first frame. An override calls its base class's version.
  virtual void initialize();
  /// Back to the state after initialize(). An override calls its base class's version.
  virtual void reset();
  /// Throws new NodeException when an input is not connected.
  virtual void verifyConnect();
  /// The run is to end early.
  virtual void stop();
  /// Nothing will be pulled any more and every node is about to be destroyed.
  virtual void cleanupNotify();

  void printOn(std::ostream& out) const override;

  // ---- the dictionaries of node types

  /// Registers a node type; the factory is adopted and lives as long as the process. The first of
  /// two registrations of a name stays, with a warning on standard error. Returns 0, so that a
  /// static initialiser can call it.
  static int addFactory(const std::string& typeName, _NodeFactory* factory);
  /// Registers the icon of a node type (not owned; null: none). Returns 0.
  static int addXPM(const std::string& typeName, char** icon);
  /// Null when there is no such type.
  static _NodeFactory* getFactoryNamed(const std::string& typeName);
  static std::map<std::string, _NodeFactory*>& factoryDictionary();
  static std::map<std::string, char**>& XPMDictionary();

  // ---- for the host alone

  /// The node type's name as the network document gives it; empty for a node built by hand.
  const std::string& getType() const { return ownType; }
  void setType(const std::string& typeName) { ownType = typeName; }

 protected:
  /// Declares a terminal and returns its number. Throws new NodeException when the name is taken.
  virtual int addInput(const std::string& inputName);
  virtual int addOutput(const std::string& outputName);

  /// Pulls an input. Throws new NodeException when it is not connected.
  ObjectRef getInput(int inputId, int count);

  std::vector<NodeInput> inputs;
  std::vector<std::string> outputNames;
  ParameterSet parameters;

 private:
  // Named so that a constructor parameter "name" in a node's source shadows nothing.
  std::string ownName;
  std::string ownType;
  bool requesting = false;
};

/// An error that a node reports.
class NodeException : public BaseException {
 public:
  /// node may be null. It is asked for its name and type by freeze() or else by print(), and must
  /// live until then: what a constructor throws has to be frozen (FrozenNodeException.h). file,
  /// line: the source line that throws.
  NodeException(Node* node, std::string text, const char* file, int line);
  void print(std::ostream& out = std::cerr) override;
  void freeze() override;

 private:
  Node* node;  // null: none, or its name and type are known
  std::string nodeName;
  std::string nodeType;
  std::string message;
  std::string file;
  int line;
};

}  // namespace zelk
}  // namespace FD
