#pragma once

#include <string>

#include "nodes/SeparationNode.h"

/// Separates sources by maximum signal-to-noise ratio, without transfer functions.
///
/// "INPUT_NOISE_SOURCES" is optional. A source gathers signal statistics while it is listed as a
/// target and noise statistics while its id is listed as a noise source. The output has an
/// arbitrary scale in every bin.
///
/// Configuration errors are thrown as a new FD::NodeException by the constructor; a
/// DECOMPOSITION_ALGORITHM that the engine does not know as BF::InvalidStateException.
class MSNR : public SeparationNode {
 public:
  static const NodeSpec SPEC;

  MSNR(std::string nodeName, FD::ParameterSet params);

 protected:
  void prepareFrame(int M, int K, int count) override;
};
