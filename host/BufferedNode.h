#pragma once

#include <string>
#include <vector>

#include "Buffer.h"
#include "Node.h"

namespace FD {
inline namespace zelk {

/// A node that computes each result once and keeps the last few in a buffer per output.
///
/// A subclass declares its terminals in its constructor and computes in calculate(). To see more of
/// an input than the current count, it sets inputsCache[id].lookAhead / lookBack there; requests
/// then make the buffers of the nodes before it long enough.
class BufferedNode : public Node {
 public:
  BufferedNode(std::string name, const ParameterSet& params);

  /// The buffered object if the count is still valid, else calculates it; with inOrder, every count
  /// since the last one calculated, in order. A framework exception leaving calculate is thrown on
  /// with a NodeException chained to it; other exceptions pass. Throws new NodeException when
  /// calculating an output needs that same output at the same count: the links form a circle.
  ObjectRef getOutput(int outputId, int count) override;

  /// Buffer lengths from "LOOKAHEAD" and "LOOKBACK" (the longest of all requests) and "INORDER",
  /// then the resulting needs to the inputs.
  void request(int outputId, const ParameterSet& req) override;

  void initialize() override;
  void reset() override;

 protected:
  /// Computes output outputId at this count and writes it to out[count]. A node with several
  /// outputs may write the others too, by outputs[id].buffer; an inOrder node must, because it is
  /// called once per count.
  virtual void calculate(int outputId, int count, Buffer& out) = 0;

  int addInput(const std::string& inputName) override;
  int addOutput(const std::string& outputName) override;

  struct OutputCache {
    int lookAhead = 0;
    int lookBack = 0;
    RCPtr<Buffer> buffer;
  };
  struct InputCache {
    int lookAhead = 0;
    int lookBack = 0;
  };

  bool inOrder = false;  ///< a stateful node sets it in its constructor
  std::vector<OutputCache> outputs;
  std::vector<InputCache> inputsCache;

 private:
  /// A call of calculate that has not returned yet; the calls of one node form a chain.
  struct Calculation {
    int outputId;
    int count;
    Calculation* outer;
  };

  void calculateOne(int outputId, int count);
  void passRequestsOn();

  int lastInOrder = -1;  // newest count calculated in order
  Calculation* running = nullptr;
  bool passingRequests = false;
  bool requestsPassed = false;
};

}  // namespace zelk
}  // namespace FD
