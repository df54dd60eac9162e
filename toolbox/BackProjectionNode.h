#pragma once

#include <string>

#include "ToolboxNode.h"
#include "separation/BackProjection.h"

/// Scales separated spectra to what the reference microphone hears of each source (node type
/// "BackProjection"; formula: Audio::BackProjection).
///
/// Inputs per frame: "INPUT", a SpectrumMap; "INPUT_FRAMES", the SpectrumMatrix that it was
/// separated from. Optional: "SOURCES", the SourceList of active targets; the averages of a source
/// then learn from the frames that list it only. Output: "OUTPUT", a new SpectrumMap of the same
/// ids.
///
/// Throws new FD::NodeException for unusable parameters and shapes that do not fit.
class BackProjection : public ToolboxNode {
 public:
  static const NodeSpec SPEC;

  BackProjection(std::string nodeName, const FD::ParameterSet& params);

  /// Forgets all averages.
  void reset() override;

 protected:
  void calculate(int output_id, int count, FD::Buffer& out) override;

 private:
  const std::complex<float>* checkedReference(const SpectrumMatrix& frames);

  int bins = 0;
  int reference = 0;  // index from 0
  Audio::BackProjection projection{0, 1.0};
};
