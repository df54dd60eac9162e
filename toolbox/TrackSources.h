#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ToolboxNode.h"
#include "dsp/FrameLayout.h"
#include "scene/Scene.h"
#include "tracking/LiveTracks.h"

/// Says which sources a tracker has in each frame, and where.
///
/// Outputs per frame as those of SceneSources. With LIVE they are who is there when the frame is
/// asked for; else all messages are read at first, and a frame has the sources of its time.
///
/// Throws new FD::NodeException for unusable parameters, inputs that cannot be read and recorded
/// tracks without a message.
class TrackSources : public ToolboxNode {
 public:
  static const NodeSpec SPEC;

  TrackSources(std::string nodeName, const FD::ParameterSet& params);
  ~TrackSources() override;

 protected:
  void calculate(int output_id, int count, FD::Buffer& out) override;

 private:
  double hopParameter() const;
  void report(const Tracking::TrackCounts& counts, const std::string& failure) const;

  std::string input;
  Audio::Scene scene;
  std::unique_ptr<Tracking::LiveTracks> live;
  Audio::FrameLayout layout{1, 1};
  int samplingRate = 0;
  bool inactiveAsNoise = false;
};
