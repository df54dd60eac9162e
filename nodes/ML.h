#pragma once

#include <complex>
#include <memory>
#include <string>

#include "BufferedNode.h"
#include "Matrix.h"
#include "bf/CML.h"

/// Separates localised sources by maximum likelihood, given a noise correlation matrix per bin.
///
/// Inputs per frame: "INPUT_FRAMES", a Matrix<std::complex<float>> of M microphones × K bins;
/// "INPUT_SOURCES", a Vector of Source; "INPUT_NOISE_CM", a Matrix<std::complex<float>> of K rows ×
/// M·M columns whose row k is bin k's noise correlation matrix, row-major (not read at frame 0,
/// where the noise counts as zero). Output: "OUTPUT", a Map from source id to
/// Vector<std::complex<float>>. The filters carry a circular shift of half a frame.
///
/// Every configuration error is thrown as a new FD::NodeException by the constructor; a missing
/// noise input, or one of the wrong shape, by the first frame that needs it.
class ML : public FD::BufferedNode {
 public:
  ML(std::string nodeName, FD::ParameterSet params);

  int translateInput(std::string inputName) override;

 protected:
  void calculate(int output_id, int count, FD::Buffer& out) override;

 private:
  int readPositiveInt(const std::string& parameter);
  void readTransferFunctionSource();
  BF::TransformFunctionDatabase loadDatabase();
  void updateNoise(int M, int K, int count);
  void requireNoiseShape(const FD::Matrix<std::complex<float>>& correlations, int M, int K);

  int inputFramesID;
  int inputSourcesID;
  int inputNoiseCMID;
  int outputID;
  int bfMethod = BF::BF_ALGORITHM_CML;
  int tfConjMode = 0;  // 1: transfer functions come from a database file
  std::string tfConjFilename;
  int length = 0;
  int samplingRate = 0;
  float regFactor = 0.0F;
  bool enableDebug = false;
  std::unique_ptr<BF::BF> engine;
};
