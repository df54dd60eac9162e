#include "ML.h"

#include <iostream>
#include <utility>
#include <vector>

#include "FrameConversion.h"
#include "NodeFactory.h"
#include "NodeReports.h"
#include "TransferFunctionLoader.h"
#include "dsp/DataError.h"
#include "host/family/FrozenNodeException.h"
#include "net_types.h"

namespace {

const int registered =
    FD::Node::addFactory("ML", new FD::NodeFactory<ML>("ML")) + FD::Node::addXPM("ML", nullptr);

const char* const SOURCE_FILE = "ML.cc";

void checkOutput(int source, int bin, const std::complex<float>& value) {
  if (hasNan(value)) reportOutputFault("ML", source, bin, "NAN");
  if (hasInfinity(value)) reportOutputFault("ML", source, bin, "INF");
}

}  // namespace

// Nodes take their parameters by value, by the host's custom.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
ML::ML(std::string nodeName, FD::ParameterSet params)
    : FD::BufferedNode(std::move(nodeName), params) {
  inputFramesID = addInput("INPUT_FRAMES");
  inputSourcesID = addInput("INPUT_SOURCES");
  inputNoiseCMID = addInput("INPUT_NOISE_CM");
  outputID = addOutput("OUTPUT");
  inOrder = true;

  length = readPositiveInt("LENGTH");
  samplingRate = readPositiveInt("SAMPLING_RATE");
  readTransferFunctionSource();
  if (bfMethod == BF::BF_ALGORITHM_CML) {
    if (!parameters.exist("REG_FACTOR")) {
      throw new FrozenNodeException(this, "ML:parameter REG_FACTOR is not set.", SOURCE_FILE,
                                    __LINE__);
    }
    regFactor = FD::dereference_cast<float>(parameters.get("REG_FACTOR"));
  }
  if (parameters.exist("ENABLE_DEBUG")) {
    enableDebug = FD::dereference_cast<bool>(parameters.get("ENABLE_DEBUG"));
  }

  const BF::TransformFunctionDatabase database = loadDatabase();
  warnOfOtherBins(*this, "ML", tfConjFilename, database, length / 2 + 1);
  engine = std::make_unique<BF::CML>(length / 2 + 1, samplingRate, SPEED_OF_SOUND, regFactor);
  engine->setTransformFunctionDatabase(database);
}

int ML::translateInput(std::string inputName) {
  if (inputName == "INPUT_FRAMES") return inputFramesID;
  if (inputName == "INPUT_SOURCES") return inputSourcesID;
  if (inputName == "INPUT_NOISE_CM") return inputNoiseCMID;
  throw new FrozenNodeException(this, inputName + " is not supported.", SOURCE_FILE, __LINE__);
}

int ML::readPositiveInt(const std::string& parameter) {
  const int value = FD::dereference_cast<int>(parameters.get(parameter));
  if (value < 1) {
    throw new FrozenNodeException(this, "ML:" + parameter + " is invalid value.", SOURCE_FILE,
                                  __LINE__);
  }
  return value;
}

void ML::readTransferFunctionSource() {
  const std::string mode = "DATABASE";
  if (mode != "DATABASE") {
    throw new FrozenNodeException(this, "Unexpected ML:TF_CONJ is set.", SOURCE_FILE, __LINE__);
  }
  if (!parameters.exist("TF_CONJ_FILENAME")) {
    throw new FrozenNodeException(this, "ML:TF_CONJ_FILENAME is not set.", SOURCE_FILE, __LINE__);
  }
  tfConjFilename = FD::object_cast<FD::String>(parameters.get("TF_CONJ_FILENAME"));
  tfConjMode = 1;
}

BF::TransformFunctionDatabase ML::loadDatabase() {
  try {
    return loadTransferFunctions(tfConjFilename);
  } catch (const DataError& error) {
    throw new FrozenNodeException(this, error.what(), SOURCE_FILE, __LINE__);
  }
}

void ML::calculate(int /*output_id*/, int count, FD::Buffer& out) {
  const FD::ObjectRef framesRef = getInput(inputFramesID, count);
  const auto& frames = FD::object_cast<SpectrumMatrix>(framesRef);
  const FD::ObjectRef sourcesRef = getInput(inputSourcesID, count);
  const auto& sourceList = FD::object_cast<FD::Vector<FD::ObjectRef>>(sourcesRef);
  updateNoise(static_cast<int>(frames.nrows()), static_cast<int>(frames.ncols()), count);

  const FD::RCPtr<SpectrumMap> spectra(new SpectrumMap);
  out[count] = spectra;
  std::vector<BF::SourceLocation> locations;
  appendLocations(sourceList, true, locations);
  if (locations.empty()) return;

  try {
    separateFrame(*engine, frames, locations, enableDebug ? checkOutput : nullptr, *spectra);
  } catch (const std::exception& fault) {
    reportEngineFault(*this, "ML", count, fault, frames, *engine);
    throw;
  }
}

// Refreshes the engine's M × M noise correlation matrices of K bins for this frame.
void ML::updateNoise(int M, int K, int count) {
  const bool connected =
      inputNoiseCMID >= 0 && inputs[inputNoiseCMID].node && inputs[inputNoiseCMID].outputID >= 0;
  if (!connected) {
    if (bfMethod == BF::BF_ALGORITHM_CML) {
      std::cout << "When you use ML, you must input noise correlation matrix to INPUT_NOISE_CM."
                << std::endl;
    }
    throw new FrozenNodeException(this, "ML needs INPUT_NOISE_CM", SOURCE_FILE, __LINE__);
  }
  std::vector<BF::Matrix>& noise = engine->noiseCorrelationMatrices;
  if (count == 0) {
    noise.assign(K, BF::Matrix(M, M));
    return;
  }
  const FD::ObjectRef noiseRef = getInput(inputNoiseCMID, count);
  const auto& correlations = FD::object_cast<SpectrumMatrix>(noiseRef);
  requireNoiseShape(correlations, M, K);
  noise.resize(K);
  for (int k = 0; k < K; ++k) {
    BF::Matrix R(M, M);
    for (int i = 0; i < M; ++i) {
      for (int j = 0; j < M; ++j) {
        R.setElementAt(i, j, std::complex<double>(correlations(k, i * M + j)));
      }
    }
    noise[k].swap(R);
  }
}

void ML::requireNoiseShape(const FD::Matrix<std::complex<float>>& correlations, int M, int K) {
  const int rows = static_cast<int>(correlations.nrows());
  const int columns = static_cast<int>(correlations.ncols());
  if (rows == K && columns == M * M) return;
  throw new FrozenNodeException(
      this,
      "ML:INPUT_NOISE_CM has " + std::to_string(rows) + " rows and " + std::to_string(columns) +
          " columns where " + std::to_string(K) + " bins and " + std::to_string(M) +
          " microphones need " + std::to_string(K) + " and " + std::to_string(M * M) + ".",
      SOURCE_FILE, __LINE__);
}
