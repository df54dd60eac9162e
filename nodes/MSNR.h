#pragma once

#include <memory>
#include <string>

#include "BufferedNode.h"
#include "bf/CMSNR.h"

/// Separates sources by maximum signal-to-noise ratio, without transfer functions.
///
/// Inputs per frame: "INPUT_FRAMES", a Matrix<std::complex<float>> of microphones × bins;
/// "INPUT_SOURCES" (the targets) and optionally "INPUT_NOISE_SOURCES", Vectors of Source. A source
/// gathers signal statistics while it is listed as a target and noise statistics while its id is
/// listed as a noise source. Output: "OUTPUT", a Map from source id to
/// Vector<std::complex<float>>, for targets and noise sources alike, with an arbitrary scale in
/// every bin.
///
/// Configuration errors are thrown as a new FD::NodeException by the constructor; a
/// DECOMPOSITION_ALGORITHM that the engine does not know as BF::InvalidStateException.
class MSNR : public FD::BufferedNode {
 public:
  MSNR(std::string nodeName, FD::ParameterSet params);

  /// "INPUT_NOISE_SOURCES" creates that input.
  int translateInput(std::string inputName) override;

 protected:
  void calculate(int output_id, int count, FD::Buffer& out) override;

 private:
  int readPositiveInt(const std::string& parameter);

  int inputFramesID;
  int inputSourcesID;
  int inputNoiseSourcesID = -1;
  int outputID;
  int length = 0;
  int samplingRate = 0;
  std::string decompositionAlgorithm = "GEVD";
  float alpha = 0.99F;
  bool enableDebug = false;
  std::unique_ptr<BF::BF> engine;
};
