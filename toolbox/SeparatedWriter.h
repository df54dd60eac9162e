#pragma once

#include <memory>
#include <string>

#include "ToolboxNode.h"
#include "toolbox/SeparatedFrames.h"

/// Writes the separated sources to one WAV file each, and timeline.json (see
/// Audio::SeparatedFiles).
///
/// Inputs per frame: "INPUT", a SpectrumMap. Optional: "SOURCES", the SourceList of active targets:
/// other ids of the map are not written, and a target is silent in frames that do not list it;
/// "SAMPLES" and "LAST_FRAME", AudioFrames' outputs, which make every file as long as the recording
/// and say when it is complete. Output: "OUTPUT", the map as it came.
///
/// The files get their names when the run is over: after the last frame if LAST_FRAME is connected;
/// else when the network ends (cleanupNotify, or the node's destruction), unless an error came
/// through this node. stop() ends them early, complete up to the last frame. In every other case
/// they are removed.
///
/// Throws new FD::NodeException for unusable parameters, spectra of the wrong length and files that
/// cannot be written. Clipped samples and samples that are not finite are reported on standard
/// error, once per file.
class SeparatedWriter : public ToolboxNode {
 public:
  static const NodeSpec SPEC;

  SeparatedWriter(std::string nodeName, const FD::ParameterSet& params);
  ~SeparatedWriter() override;

  /// Ends a former run as the network's end would, and begins anew with frame 0.
  void reset() override;

  /// Completes the files with what was separated so far; later frames are not written.
  void stop() override;
  void cleanupNotify() override;

 protected:
  void calculate(int output_id, int count, FD::Buffer& out) override;

 private:
  std::unique_ptr<SeparatedFrames> openFiles() const;
  void write(const SpectrumMap& map, int count);
  const std::complex<float>* checkedSpectrum(int id, const FD::ObjectRef& spectrum);
  void finish();
  void endRun();

  std::unique_ptr<SeparatedFrames> files;  // null: given up or ended
  bool used = false;                       // since the files were opened
};
