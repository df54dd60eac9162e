#pragma once

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "BufferedNode.h"
#include "tests/support/ThrownText.h"

// Node types for the tests. TestNodes.cc registers the ones that documents use.

/// An int that counts how many of its kind there are, and were at most.
class Counted : public FD::Int {
 public:
  explicit Counted(int v) : FD::Int(v) {
    ++live;
    peak = std::max(peak, live);
  }
  Counted(const Counted&) = delete;
  ~Counted() override { --live; }

  static inline int live = 0;
  static inline int peak = 0;
};

/// How often a RunningSum was told to stop.
extern int stopCalls;

/// OUTPUT: given by a function of the count; remembers which counts it calculated and which
/// requests came.
class Probe : public FD::BufferedNode {
 public:
  using Function = std::function<int(Probe&, int count)>;

  explicit Probe(std::string nodeName, bool ordered = false, Function f = {})
      : FD::BufferedNode(std::move(nodeName), FD::ParameterSet()), function(std::move(f)) {
    addOutput("OUTPUT");
    inOrder = ordered;
    setType("Probe");
  }

  /// Links a new input, of which the node sees this many counts before and after the current one.
  Probe& from(FD::Node& node, int lookBack = 0, int lookAhead = 0) {
    const int id = addInput(fmt::format("IN{}", inputs.size()));
    inputsCache[static_cast<std::size_t>(id)].lookBack = lookBack;
    inputsCache[static_cast<std::size_t>(id)].lookAhead = lookAhead;
    connectToNode(static_cast<unsigned>(id), &node, 0u);
    return *this;
  }

  int input(int id, int count) { return FD::dereference_cast<int>(getInput(id, count)); }
  int at(int count) { return FD::dereference_cast<int>(getOutput(0, count)); }

  void request(int outputId, const FD::ParameterSet& req) override {
    ++requests;
    BufferedNode::request(outputId, req);
  }

  std::vector<int> calculated;
  int requests = 0;

 private:
  void calculate(int, int count, FD::Buffer& out) override {
    calculated.push_back(count);
    const int value = function ? function(*this, count) : count;
    out[count] = FD::ObjectRef(new Counted(value));
  }

  Function function;
};
