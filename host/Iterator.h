#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Network.h"

namespace FD {
inline namespace zelk {

/// A network that runs as a loop: asked for a result, it pulls its outputs at 0, 1, 2, … for as
/// long as its condition is true, and returns the last ones (nilObject when there were none).
///
/// The condition of a frame is asked before the frame's outputs; with the parameter DOWHILE true,
/// after them. The nodes inside count the iterator's own frames; what they pull from the network's
/// inputs stays that of the outer count for the whole loop. Each outer count runs the loop anew,
/// after a reset of every node.
class Iterator : public Network {
 public:
  /// Throws new CastException<bool> when DOWHILE is no Bool.
  Iterator(std::string name, const ParameterSet& params);

  /// The output of a node that gives the condition, a Bool.
  void bindCondition(const std::string& nodeName, const std::string& terminal);

  /// Called after each frame with its number; the loop ends there when it returns false.
  using FrameHook = std::function<bool(int frame)>;
  void setFrameHook(FrameHook hook) { onFrame = std::move(hook); }

  ObjectRef getOutput(int outputId, int count) override;
  void request(int outputId, const ParameterSet& req) override;
  void reset() override;

 protected:
  ObjectRef pullInput(int inputId, int count) override;
  void requestInput(int inputId, const ParameterSet& req) override;

 private:
  void run();
  bool conditionHolds(int frame);

  RCPtr<Collector> condition;
  FrameHook onFrame;
  std::vector<ObjectRef> results;
  bool doWhile = false;
  bool running = false;
  bool used = false;    // since the last reset
  int outerCount = -1;  // the count that results belong to
};

}  // namespace zelk
}  // namespace FD
