#include "nodes/SeparationNode.h"

#include <exception>
#include <utility>
#include <vector>

#include "dsp/DataError.h"
#include "geometry/SpeedOfSound.h"
#include "nodes/FrameConversion.h"
#include "nodes/NodeReports.h"
#include "nodes/TransferFunctionLoader.h"

SeparationNode::SeparationNode(const NodeSpec& nodeSpec, std::string nodeName,
                               const FD::ParameterSet& params, int sourceLine)
    : DeclaredNode(nodeSpec, std::move(nodeName), params, sourceLine) {
  inOrder = true;
}

// ---- parameters

void SeparationNode::readFrame(int sourceLine) {
  length = readPositiveInt("LENGTH", sourceLine);
  samplingRate = readPositiveInt("SAMPLING_RATE", sourceLine);
}

int SeparationNode::readPositiveInt(const char* parameter, int sourceLine) {
  const int value = intParameter(parameter);
  if (value < 1) {
    fail(std::string(spec.type) + ":" + parameter + " is invalid value.", sourceLine);
  }
  return value;
}

void SeparationNode::readTransferFunctionSource(int sourceLine) {
  const std::string mode = "DATABASE";
  if (mode != "DATABASE") {
    fail(std::string("Unexpected ") + spec.type + ":TF_CONJ is set.", sourceLine);
  }
  if (!isGiven("TF_CONJ_FILENAME")) {
    fail(std::string(spec.type) + ":TF_CONJ_FILENAME is not set.", sourceLine);
  }
  tfConjFilename = stringParameter("TF_CONJ_FILENAME");
  tfConjMode = 1;
}

void SeparationNode::readDebug() { enableDebug = boolParameter("ENABLE_DEBUG"); }

// ---- engine

BF::TransformFunctionDatabase SeparationNode::loadDatabase(int sourceLine) {
  try {
    BF::TransformFunctionDatabase database = loadTransferFunctions(tfConjFilename);
    warnOfOtherBins(*this, spec.type, tfConjFilename, database, length / 2 + 1);
    return database;
  } catch (const DataError& error) {
    fail(error.what(), sourceLine);
  }
}

void SeparationNode::makeEngine(BF::BfAlgorithmType algorithm,
                                const BF::EngineParameters& engineParameters) {
  engine =
      BF::makeEngine(algorithm, engineParameters, length / 2 + 1, samplingRate, BF::SPEED_OF_SOUND);
}

// ---- frames

void SeparationNode::prepareFrame(int /*M*/, int /*K*/, int /*count*/) {}

void SeparationNode::calculate(int /*output_id*/, int count, FD::Buffer& out) {
  const FD::ObjectRef framesRef = pull("INPUT_FRAMES", count);
  const auto& frames = FD::object_cast<SpectrumMatrix>(framesRef);
  const FD::ObjectRef targets = pull("INPUT_SOURCES", count);
  std::vector<BF::SourceLocation> locations;
  appendLocations(FD::object_cast<SourceList>(targets), true, locations);
  // A network around this one can create the input and leave it open.
  if (isConnected("INPUT_NOISE_SOURCES")) {
    const FD::ObjectRef noise = pull("INPUT_NOISE_SOURCES", count);
    appendLocations(FD::object_cast<SourceList>(noise), false, locations);
  }
  prepareFrame(static_cast<int>(frames.nrows()), static_cast<int>(frames.ncols()), count);

  const FD::RCPtr<SpectrumMap> spectra(new SpectrumMap);
  out[count] = spectra;
  if (locations.empty()) return;
  const OutputCheck check(spec.type, nanHidesInfinity);
  try {
    separateFrame(*engine, frames, locations, enableDebug ? &check : nullptr, *spectra);
  } catch (const std::exception& fault) {
    reportEngineFault(*this, spec.type, count, fault, frames, *engine);
    throw;
  }
}
