#pragma once

#include <string>
#include <vector>

#include "nodes/SeparationNode.h"

/// Separates localised sources with a fixed or adaptive beamformer: spectra of all microphones and
/// a source list in, one spectrum per source out. "INPUT_NOISE_SOURCES" is optional.
///
/// Every configuration error is thrown as a new FD::NodeException by the constructor.
class BeamForming : public SeparationNode {
 public:
  static const NodeSpec SPEC;

  BeamForming(std::string nodeName, FD::ParameterSet params);

 private:
  void readMethod();
  BF::EngineParameters readMethodParameters() const;
  void readConstraintStep(const char* methodName, const char* stepName,
                          BF::EngineParameters& p) const;
  void readSeparationStep(BF::EngineParameters& p) const;

  BF::BfAlgorithmType bfMethod = BF::BF_ALGORITHM_DS;
  std::string initWFilename;
  int useInitW = 0;
  std::vector<BF::MicLocation> micLocations;
};
