#include "beamforming.h"

#include <map>
#include <utility>
#include <vector>

#include "FrameConversion.h"
#include "NodeFactory.h"
#include "NodeReports.h"
#include "TransferFunctionLoader.h"
#include "bf/Fixed.h"
#include "bf/GJ.h"
#include "bf/GSS.h"
#include "bf/LCMV.h"
#include "dsp/DataError.h"
#include "host/family/FrozenNodeException.h"
#include "net_types.h"

namespace {

const int registered =
    FD::Node::addFactory("BeamForming", new FD::NodeFactory<BeamForming>("BeamForming")) +
    FD::Node::addXPM("BeamForming", nullptr);

const char* const SOURCE_FILE = "beamforming.cc";

void checkOutput(int source, int bin, const std::complex<float>& value) {
  if (hasNan(value)) {
    reportOutputFault("BeamForming", source, bin, "NAN");
  } else if (hasInfinity(value)) {
    reportOutputFault("BeamForming", source, bin, "INF");
  }
}

}  // namespace

// Nodes take their parameters by value, by the host's custom.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
BeamForming::BeamForming(std::string nodeName, FD::ParameterSet params)
    : FD::BufferedNode(std::move(nodeName), params) {
  inputFramesID = addInput("INPUT_FRAMES");
  inputSourcesID = addInput("INPUT_SOURCES");
  outputID = addOutput("OUTPUT");
  inOrder = true;

  readMethod();
  length = readPositiveInt("LENGTH");
  samplingRate = readPositiveInt("SAMPLING_RATE");
  readTransferFunctionSource();
  if (has("INITW_FILENAME")) {
    initWFilename = stringParameter("INITW_FILENAME");
    useInitW = 1;
  }
  readMethodParameters();
  if (has("ENABLE_DEBUG")) {
    enableDebug = FD::dereference_cast<bool>(parameters.get("ENABLE_DEBUG"));
  }

  const BF::TransformFunctionDatabase database = loadDatabase();
  warnOfOtherBins(*this, "BeamForming", tfConjFilename, database, length / 2 + 1);
  micLocations = database.micLocations;
  engine = makeEngine();
  engine->setTransformFunctionDatabase(database);
}

int BeamForming::translateInput(std::string inputName) {
  if (inputName == "INPUT_FRAMES") return inputFramesID;
  if (inputName == "INPUT_SOURCES") return inputSourcesID;
  if (inputName == "INPUT_NOISE_SOURCES") {
    inputNoiseSourcesID = addInput(inputName);
    return inputNoiseSourcesID;
  }
  throw new FrozenNodeException(this, inputName + " is not supported.", SOURCE_FILE, __LINE__);
}

void BeamForming::readMethod() {
  static const std::map<std::string, int> METHODS = {
      {"DS", BF::BF_ALGORITHM_DS},      {"WDS", BF::BF_ALGORITHM_WDS},
      {"NULL", BF::BF_ALGORITHM_NULL},  {"ILSE", BF::BF_ALGORITHM_ILSE},
      {"LCMV", BF::BF_ALGORITHM_LCMV},  {"GJ", BF::BF_ALGORITHM_GJ},
      {"GSS", BF::BF_ALGORITHM_GSS},    {"GICA", BF::BF_ALGORITHM_GICA},
      {"GHDSS", BF::BF_ALGORITHM_GHDSS}};
  const auto method = METHODS.find(stringParameter("BF_METHOD"));
  if (method == METHODS.end()) {
    throw new FrozenNodeException(this, "Unexpected BeamForming:BF_METHOD is set.", SOURCE_FILE,
                                  __LINE__);
  }
  bfMethod = method->second;
}

int BeamForming::readPositiveInt(const std::string& parameter) {
  const int value = FD::dereference_cast<int>(parameters.get(parameter));
  if (value <= 0) {
    throw new FrozenNodeException(this, "BeamForming:" + parameter + " is invalid value.",
                                  SOURCE_FILE, __LINE__);
  }
  return value;
}

void BeamForming::readTransferFunctionSource() {
  const std::string mode = "DATABASE";
  if (mode != "DATABASE") {
    throw new FrozenNodeException(this, "Unexpected BeamForming:TF_CONJ is set.", SOURCE_FILE,
                                  __LINE__);
  }
  if (!has("TF_CONJ_FILENAME")) {
    throw new FrozenNodeException(this, "BeamForming:TF_CONJ_FILENAME is not set.", SOURCE_FILE,
                                  __LINE__);
  }
  tfConjFilename = stringParameter("TF_CONJ_FILENAME");
  tfConjMode = 1;
}

void BeamForming::readMethodParameters() {
  if (bfMethod == BF::BF_ALGORITHM_GJ) {
    readConstraintStep("GJ");
  } else if (bfMethod == BF::BF_ALGORITHM_GICA) {
    readSeparationStep();
    readConstraintStep("GICA");
  } else if (bfMethod == BF::BF_ALGORITHM_LCMV) {
    readConstraintStep("LCMV");
  }
}

// <prefix>_LC_METHOD; a text that is neither "FIX" nor "ADAPTIVE" changes nothing.
void BeamForming::readConstraintStep(const std::string& prefix) {
  if (!has(prefix + "_LC_METHOD")) return;
  const std::string method = stringParameter(prefix + "_LC_METHOD");
  if (method != "FIX" && method != "ADAPTIVE") return;
  lcAdaptive = method == "ADAPTIVE";
  readFloat(prefix + "_LC_MYU", lcMu);
}

// GICA_SS_METHOD; "LC_MYU" is a fixed step that takes its size from the constraint's.
void BeamForming::readSeparationStep() {
  if (has("GICA_SS_METHOD")) {
    const std::string method = stringParameter("GICA_SS_METHOD");
    if (method == "FIX") {
      ssAdaptive = false;
      readFloat("GICA_SS_MYU", ssMu);
    } else if (method == "LC_MYU") {
      ssAdaptive = false;
      readFloat("GICA_LC_MYU", ssMu);
    } else if (method == "ADAPTIVE") {
      ssAdaptive = true;
      readFloat("GICA_SS_MYU", ssMu);
    }
  }
  readFloat("GICA_SS_SCAL", ssScale);
}

BF::TransformFunctionDatabase BeamForming::loadDatabase() {
  try {
    return loadTransferFunctions(tfConjFilename);
  } catch (const DataError& error) {
    throw new FrozenNodeException(this, error.what(), SOURCE_FILE, __LINE__);
  }
}

std::unique_ptr<BF::BF> BeamForming::makeEngine() {
  const int numFreq = length / 2 + 1;
  const double speed = SPEED_OF_SOUND;
  switch (bfMethod) {
    case BF::BF_ALGORITHM_DS:
      return std::make_unique<BF::DS>(numFreq, samplingRate, speed);
    case BF::BF_ALGORITHM_WDS:
      return std::make_unique<BF::WDS>(numFreq, samplingRate, speed);
    case BF::BF_ALGORITHM_NULL:
      return std::make_unique<BF::Null>(numFreq, samplingRate, speed);
    case BF::BF_ALGORITHM_ILSE:
      return std::make_unique<BF::ILSE>(numFreq, samplingRate, speed);
    case BF::BF_ALGORITHM_LCMV:
      return std::make_unique<BF::LCMV>(numFreq, samplingRate, speed, lcAdaptive, lcMu);
    case BF::BF_ALGORITHM_GJ:
      return std::make_unique<BF::GJ>(numFreq, samplingRate, speed, lcAdaptive, lcMu);
    case BF::BF_ALGORITHM_GICA:
      return std::make_unique<BF::GICA>(numFreq, samplingRate, speed, lcAdaptive, lcMu, ssAdaptive,
                                        ssMu, ssScale, static_cast<BF::NlFuncType>(nlFuncType));
    default:
      throw new FrozenNodeException(this, "Adapter not implemented.", SOURCE_FILE, __LINE__);
  }
}

std::string BeamForming::stringParameter(const std::string& parameter) const {
  return FD::object_cast<FD::String>(parameters.get(parameter));
}

void BeamForming::readFloat(const std::string& parameter, float& value) const {
  if (has(parameter)) value = FD::dereference_cast<float>(parameters.get(parameter));
}

void BeamForming::calculate(int /*output_id*/, int count, FD::Buffer& out) {
  const FD::ObjectRef framesRef = getInput(inputFramesID, count);
  const auto& frames = FD::object_cast<SpectrumMatrix>(framesRef);
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
    reportEngineFault(*this, "BeamForming", count, fault, frames, *engine);
    throw;
  }
}
