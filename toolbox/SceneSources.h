#pragma once

#include <string>
#include <vector>

#include "ToolboxNode.h"
#include "dsp/FrameLayout.h"
#include "scene/SceneFile.h"

/// Says which sources a scene file has in each frame, and where.
///
/// Outputs per frame: "SOURCES", the targets that are active at the frame's time (that of its
/// centre), and "NOISE_SOURCES", the noise sources that are active then, followed by the targets
/// that are not if INACTIVE_AS_NOISE is true; each a SourceList.
///
/// Throws new FD::NodeException for unusable parameters and scene files.
class SceneSources : public ToolboxNode {
 public:
  static const NodeSpec SPEC;

  SceneSources(std::string nodeName, const FD::ParameterSet& params);

 protected:
  void calculate(int output_id, int count, FD::Buffer& out) override;

 private:
  Audio::Scene scene;
  Audio::FrameLayout layout{1, 1};
  int samplingRate = 0;
  bool inactiveAsNoise = false;
};
