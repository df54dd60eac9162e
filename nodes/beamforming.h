#pragma once

#include <memory>
#include <string>
#include <vector>

#include "BufferedNode.h"
#include "bf/BF.h"

/// Separates localised sources with a fixed or adaptive beamformer: spectra of all microphones and
/// a source list in, one spectrum per source out.
///
/// Inputs per frame: "INPUT_FRAMES", a Matrix<std::complex<float>> of microphones × bins;
/// "INPUT_SOURCES" and optionally "INPUT_NOISE_SOURCES", Vectors of Source. Output: "OUTPUT", a
/// Map from source id to Vector<std::complex<float>>, for targets and noise sources alike.
///
/// Every configuration error is thrown as a new FD::NodeException by the constructor.
class BeamForming : public FD::BufferedNode {
 public:
  BeamForming(std::string nodeName, FD::ParameterSet params);

  /// "INPUT_NOISE_SOURCES" creates that input.
  int translateInput(std::string inputName) override;

 protected:
  void calculate(int output_id, int count, FD::Buffer& out) override;

 private:
  void readMethod();
  int readPositiveInt(const std::string& parameter);
  void readTransferFunctionSource();
  void readMethodParameters();
  void readConstraintStep(const std::string& prefix);
  void readSeparationStep();
  BF::TransformFunctionDatabase loadDatabase();
  std::unique_ptr<BF::BF> makeEngine();

  bool has(const std::string& parameter) const { return parameters.exist(parameter); }
  std::string stringParameter(const std::string& parameter) const;
  void readFloat(const std::string& parameter, float& value) const;

  int inputFramesID;
  int inputSourcesID;
  int inputNoiseSourcesID = -1;
  int outputID;
  int bfMethod = 0;
  int tfConjMode = 0;  // 1: transfer functions come from a database file
  std::string tfConjFilename;
  int length = 0;
  int samplingRate = 0;
  std::string initWFilename;
  int useInitW = 0;
  float ssScale = 0.1F;
  bool ssAdaptive = false;
  float ssMu = 0.001F;
  bool lcAdaptive = false;
  float lcMu = 0.001F;
  int nlFuncType = 1;
  bool enableDebug = false;
  std::vector<BF::MicLocation> micLocations;
  std::unique_ptr<BF::BF> engine;
};
