#pragma once

#include <memory>
#include <string>

#include "ToolboxNode.h"
#include "separation/NoiseCorrelation.h"

/// Estimates the spatial correlation matrices of the noise (node type "NoiseCorrelation").
///
/// MODE "RANGES": the mean over stated time ranges of a file, the recording itself or another;
/// "FILE": over a whole file; both computed once, by a pass of their own, when the node is built,
/// and the same at every frame. "RUNNING": a running mean over the frames of the input "INPUT" (a
/// SpectrumMatrix) in which "SOURCES" (a SourceList) is empty; both inputs are read in this mode
/// only.
///
/// Output "OUTPUT": a Matrix<std::complex<float>> of bins × M·M; row k is the matrix of bin k,
/// element (i, j) at column i · M + j, with diagonal loading (see Audio::NoiseCorrelation).
///
/// Throws new FD::NodeException for unusable parameters and files, frames whose shape changes, and
/// missing links.
class NoiseCorrelation : public ToolboxNode {
 public:
  static const NodeSpec SPEC;

  NoiseCorrelation(std::string nodeName, const FD::ParameterSet& params);

  /// Asks for the previous frame to be kept with each input: a node that first needs the noise at
  /// frame 1 makes this one catch up on frame 0.
  int translateInput(std::string inputName) override;

  /// A running mean begins anew.
  void reset() override;

 protected:
  void calculate(int output_id, int count, FD::Buffer& out) override;

 private:
  Audio::NoiseCorrelation noiseOfFile() const;
  void update(int count);
  FD::ObjectRef result() const;

  bool isRunning = false;
  std::unique_ptr<Audio::NoiseCorrelation> noise;  // null: running, and no frame seen yet
  FD::ObjectRef fixedResult;                       // of the modes that read a file
};
