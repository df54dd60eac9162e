#pragma once

#include <memory>
#include <string>

#include "bf/BF.h"
#include "bf/GSS.h"

namespace BF {

/// What the constructors of the algorithms take beside the frame: each algorithm reads its own.
struct EngineParameters {
  bool lcAdaptive = true;  ///< LCMV, GJ, GSS and its kin: the step follows the signal's power
  double mu = 0.2;         ///< the same: step size, or its multiplier when adaptive
  bool ssAdaptive = true;  ///< GSS and its kin: likewise, for the separation term
  double mu_ss = 0.1;      ///< GSS and its kin: step size of the separation term, or its multiplier
  double scale = 0.1;      ///< GSS and its kin: scale of the outputs inside the tanh
  NlFuncType nlFuncType = NL_FUNC_TANH;         ///< GSS and its kin: φ of the separation term
  double regFactor = 1e-4;                      ///< CML: regularisation, relative to ‖R‖
  double alpha = 0.99;                          ///< CMSNR: forgetting factor of the averages
  std::string decompositionAlgorithm = "GEVD";  ///< CMSNR: "GEVD" or "GSVD"
};

/// The engine of an algorithm, without database and sources. numFreq, samplingRate (Hz) and
/// soundSpeed (m/s) as in BF. Throws InvalidStateException for a number that is no algorithm and
/// for another decompositionAlgorithm.
std::unique_ptr<BF> makeEngine(BfAlgorithmType algorithm, const EngineParameters& parameters,
                               int numFreq, int samplingRate, double soundSpeed);

}  // namespace BF
