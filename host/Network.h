#pragma once

#include <map>
#include <string>
#include <vector>

#include "Collector.h"
#include "Node.h"

namespace FD {
inline namespace zelk {

/// A node made of named nodes and the links between them. Its outputs are those of its sink, a
/// Collector; its inputs appear to the nodes inside as outputs of a node that stands for the outer
/// network.
class Network : public Node {
 public:
  Network(std::string name, const ParameterSet& params);
  /// Notifies every node not yet notified (cleanupNotify, its errors ignored), then lets go of all.
  ~Network() override;

  // ---- building; each throws new NodeException for unknown or repeated names

  /// Takes the node in under its own name.
  void addNode(const RCPtr<Node>& node);
  Node& getNodeNamed(const std::string& nodeName) const;
  void connect(const std::string& toNode, const std::string& input, const std::string& fromNode,
               const std::string& output);
  /// Declares an input of the network, unless it is declared already.
  void declareInput(const std::string& inputName);
  /// Links an input of the network to an input of one of its nodes.
  void bindInput(const std::string& inputName, const std::string& nodeName,
                 const std::string& terminal);
  /// Makes an output of a node an output of the network.
  void bindOutput(const std::string& outputName, const std::string& nodeName,
                  const std::string& terminal);
  int getOutputCount() const { return sink->getOutputCount(); }

  // ---- as a node

  int translateOutput(std::string outputName) override;
  bool hasOutput(int outputId) const override;
  ObjectRef getOutput(int outputId, int count) override;
  void request(int outputId, const ParameterSet& req) override;
  void initialize() override;
  void reset() override;
  void verifyConnect() override;
  void stop() override;
  /// Notifies each node once, in all calls together; what a node throws passes on.
  void cleanupNotify() override;

 protected:
  /// The nodes inside pull the network's inputs through these two.
  virtual ObjectRef pullInput(int inputId, int count);
  virtual void requestInput(int inputId, const ParameterSet& req);

  RCPtr<Collector> sink;

 private:
  class NetworkInputs;

  std::vector<RCPtr<Node>> nodes;  // in the order of their addition
  std::map<std::string, Node*> nodesByName;
  RCPtr<NetworkInputs> networkInputs;
  std::size_t notified = 0;  // how many nodes had their cleanupNotify
};

}  // namespace zelk
}  // namespace FD
