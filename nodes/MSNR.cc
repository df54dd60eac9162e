#include "MSNR.h"

#include <utility>
#include <vector>

#include "FrameConversion.h"
#include "NodeFactory.h"
#include "NodeReports.h"
#include "host/family/FrozenNodeException.h"
#include "net_types.h"

namespace {

const int registered = FD::Node::addFactory("MSNR", new FD::NodeFactory<MSNR>("MSNR")) +
                       FD::Node::addXPM("MSNR", nullptr);

const char* const SOURCE_FILE = "MSNR.cc";

void checkOutput(int source, int bin, const std::complex<float>& value) {
  if (hasNan(value)) reportOutputFault("MSNR", source, bin, "NAN");
  if (hasInfinity(value)) reportOutputFault("MSNR", source, bin, "INF");
}

}  // namespace

// Nodes take their parameters by value, by the host's custom.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
MSNR::MSNR(std::string nodeName, FD::ParameterSet params)
    : FD::BufferedNode(std::move(nodeName), params) {
  inputFramesID = addInput("INPUT_FRAMES");
  inputSourcesID = addInput("INPUT_SOURCES");
  outputID = addOutput("OUTPUT");
  inOrder = true;

  length = readPositiveInt("LENGTH");
  samplingRate = readPositiveInt("SAMPLING_RATE");
  if (parameters.exist("ALPHA")) alpha = FD::dereference_cast<float>(parameters.get("ALPHA"));
  if (parameters.exist("DECOMPOSITION_ALGORITHM")) {
    decompositionAlgorithm = FD::object_cast<FD::String>(parameters.get("DECOMPOSITION_ALGORITHM"));
  }
  if (parameters.exist("ENABLE_DEBUG")) {
    enableDebug = FD::dereference_cast<bool>(parameters.get("ENABLE_DEBUG"));
  }

  try {
    engine = std::make_unique<BF::CMSNR>(length / 2 + 1, samplingRate, SPEED_OF_SOUND,
                                         decompositionAlgorithm, alpha);
  } catch (const BF::InvalidStateException& fault) {
    reportEngineFault(
        *this, "MSNR", fault,
        "DECOMPOSITION_ALGORITHM is \"" + decompositionAlgorithm + "\", expected GEVD or GSVD");
    throw;
  }
}

int MSNR::translateInput(std::string inputName) {
  if (inputName == "INPUT_FRAMES") return inputFramesID;
  if (inputName == "INPUT_SOURCES") return inputSourcesID;
  if (inputName == "INPUT_NOISE_SOURCES") {
    inputNoiseSourcesID = addInput(inputName);
    return inputNoiseSourcesID;
  }
  throw new FrozenNodeException(this, inputName + " is not supported.", SOURCE_FILE, __LINE__);
}

int MSNR::readPositiveInt(const std::string& parameter) {
  const int value = FD::dereference_cast<int>(parameters.get(parameter));
  if (value <= 0) {
    throw new FrozenNodeException(this, "MSNR:" + parameter + " is invalid value.", SOURCE_FILE,
                                  __LINE__);
  }
  return value;
}

void MSNR::calculate(int /*output_id*/, int count, FD::Buffer& out) {
  const FD::ObjectRef framesRef = getInput(inputFramesID, count);
  const auto& frames = FD::object_cast<SpectrumMatrix>(framesRef);
  engine->numMic = static_cast<int>(frames.nrows());

  const FD::ObjectRef targetsRef = getInput(inputSourcesID, count);
  const auto& targets = FD::object_cast<FD::Vector<FD::ObjectRef>>(targetsRef);
  // A network around this one can create the input and leave it open.
  const bool hasNoiseSources = inputNoiseSourcesID >= 0 && inputs[inputNoiseSourcesID].node;
  FD::ObjectRef noiseRef;
  if (hasNoiseSources) noiseRef = getInput(inputNoiseSourcesID, count);

  const FD::RCPtr<SpectrumMap> spectra(new SpectrumMap);
  out[count] = spectra;
  std::vector<BF::SourceLocation> locations;
  appendLocations(targets, true, locations);
  if (hasNoiseSources) {
    appendLocations(FD::object_cast<FD::Vector<FD::ObjectRef>>(noiseRef), false, locations);
  }
  if (locations.empty()) return;

  try {
    separateFrame(*engine, frames, locations, enableDebug ? checkOutput : nullptr, *spectra);
  } catch (const std::exception& fault) {
    reportEngineFault(*this, "MSNR", count, fault, frames, *engine);
    throw;
  }
}
