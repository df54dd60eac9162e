#pragma once

#include <string>

#include "nodes/SeparationNode.h"

/// Separates localised sources by maximum likelihood, given a noise correlation matrix per bin.
///
/// "INPUT_NOISE_CM" is a SpectrumMatrix of K rows × M·M columns for M microphones and K bins, whose
/// row k is bin k's noise correlation matrix, row-major (not read at frame 0, where the noise
/// counts as zero). The filters carry a circular shift of half a frame.
///
/// Every configuration error is thrown as a new FD::NodeException by the constructor; a missing
/// noise input, or one of the wrong shape, by the first frame that needs it.
class ML : public SeparationNode {
 public:
  static const NodeSpec SPEC;

  ML(std::string nodeName, FD::ParameterSet params);

 protected:
  void prepareFrame(int M, int K, int count) override;

 private:
  void requireNoiseShape(const SpectrumMatrix& correlations, int M, int K);
};
