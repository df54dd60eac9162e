#pragma once

#include <string>

#include "ToolboxNode.h"
#include "separation/Level.h"

/// Brings spectra to a stated level (node type "Level"; formula: Separation::Level), for MSNR.
///
/// Input per frame: "INPUT", a SpectrumMatrix. Output: "OUTPUT", a new one, multiplied by the gain.
class Level : public ToolboxNode {
 public:
  static const NodeSpec SPEC;

  Level(std::string nodeName, const FD::ParameterSet& params);

  /// Forgets the level.
  void reset() override;

 protected:
  void calculate(int output_id, int count, FD::Buffer& out) override;

 private:
  Separation::Level level;
};
