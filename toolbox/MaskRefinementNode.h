#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "ToolboxNode.h"
#include "separation/refine/RunningRefinement.h"

/// Separates anew, by MVDR, what a method separated (node type "MaskRefinement"; formula:
/// Separation::RunningRefinement).
///
/// Inputs per frame: "INPUT", a SpectrumMap; "INPUT_FRAMES", the SpectrumMatrix that it was
/// separated from. Optional: "SOURCES", the SourceList of those that take part. Output: "OUTPUT", a
/// new SpectrumMap of the ids that took part.
///
/// Throws new FD::NodeException for unusable parameters and shapes that do not fit.
class MaskRefinement : public ToolboxNode {
 public:
  static const NodeSpec SPEC;

  MaskRefinement(std::string nodeName, const FD::ParameterSet& params);

  /// Forgets all covariances.
  void reset() override;

 protected:
  void calculate(int output_id, int count, FD::Buffer& out) override;

 private:
  void loadFrame(const SpectrumMatrix& frames);
  void loadSeparated(const SpectrumMap& separated, int count);

  int bins = 0;
  int reference = 0;  // index from 0
  double forgetting = 0.0;
  double loading = 0.0;
  double postMask = 1.0;
  std::optional<Separation::RunningRefinement> refinement;  // from the first frame on
  // Of the frame:
  BF::Matrix X;
  BF::Matrix Y;
  std::vector<BF::SourceLocation> listed;
  std::vector<std::size_t> rows;
  std::vector<double> masks;
};
