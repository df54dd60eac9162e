#pragma once

#include <memory>
#include <string>

#include "ToolboxNode.h"
#include "separation/mvdr/Mvdr.h"

/// Separates by MVDR from whole impulse responses (node type "MVDR"; formula: Separation::Mvdr).
///
/// Inputs per frame: "INPUT_FRAMES", a SpectrumMatrix of microphones × bins; "INPUT_SOURCES", a
/// SourceList of targets. Optional: "INPUT_NOISE_SOURCES", a SourceList. Output: "OUTPUT", a
/// SpectrumMap, for targets and noise sources alike.
///
/// Throws new FD::NodeException for unusable parameters, responses and shapes.
class MVDR : public ToolboxNode {
 public:
  static const NodeSpec SPEC;

  MVDR(std::string nodeName, const FD::ParameterSet& params);

 protected:
  void calculate(int output_id, int count, FD::Buffer& out) override;

 private:
  void makeEngine();

  std::unique_ptr<Separation::Mvdr> engine;
};
