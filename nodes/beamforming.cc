#include "nodes/beamforming.h"

#include <map>
#include <utility>

const NodeSpec BeamForming::SPEC = {
    .type = "BeamForming",
    .sourceFile = "beamforming.cc",
    .text =
        "Separates localised sources with a fixed or adaptive beamformer built from a database of "
        "transfer functions.",
    .inputs =
        {INPUT_FRAMES,
         INPUT_SOURCES,
         {"INPUT_NOISE_SOURCES", SOURCES_TYPE,
          "Optional: noise sources, separated like the others and emitted under their own ids.",
          NodeSpec::OPTIONAL}},
    .outputs = {{"OUTPUT", SPECTRUM_MAP_TYPE,
                 "Source id to its separated spectrum, a Vector of complex numbers with an entry "
                 "per bin."}},
    .parameters = {
        {"BF_METHOD", "string", nullptr,
         "The algorithm: DS, WDS, NULL, ILSE (fixed), LCMV, GJ or GICA (adaptive). Required."},
        LENGTH,
        SAMPLING_RATE,
        TF_CONJ_FILENAME,
        {"INITW_FILENAME", "string", "",
         "Reserved for a file of initial separation matrices; it is accepted and not read. Leave "
         "it empty."},
        {"LCMV_LC_METHOD", "string", "FIX",
         "LCMV's step: FIX uses LCMV_LC_MYU as it is, ADAPTIVE divides it by twice the input power "
         "of the bin."},
        {"LCMV_LC_MYU", "float", "0.001",
         "LCMV's step size; larger follows changes faster and cancels less cleanly. Read when "
         "LCMV_LC_METHOD is set."},
        {"GJ_LC_METHOD", "string", "FIX",
         "GJ's step: FIX uses GJ_LC_MYU as it is, ADAPTIVE divides it by twice the power of the "
         "blocked signals."},
        {"GJ_LC_MYU", "float", "0.001", "GJ's step size. Read when GJ_LC_METHOD is set."},
        {"GICA_SS_METHOD", "string", "FIX",
         "GICA's separation step: FIX uses GICA_SS_MYU as it is, LC_MYU uses GICA_LC_MYU as it is, "
         "ADAPTIVE computes the step in every frame and multiplies it by GICA_SS_MYU."},
        {"GICA_SS_MYU", "float", "0.001",
         "GICA's separation step size or its multiplier. Read when GICA_SS_METHOD is set."},
        {"GICA_SS_SCAL", "float", "0.1",
         "Scale of the spectra inside GICA's tanh: about one over their usual modulus."},
        {"GICA_LC_METHOD", "string", "FIX",
         "GICA's constraint step: FIX uses GICA_LC_MYU as it is, ADAPTIVE computes the step in "
         "every frame and multiplies it by GICA_LC_MYU."},
        {"GICA_LC_MYU", "float", "0.001",
         "GICA's constraint step size or its multiplier. Read when GICA_LC_METHOD is set, or "
         "GICA_SS_METHOD is LC_MYU."},
        ENABLE_DEBUG}};

namespace {

const int registered = declareNode<BeamForming>();

}  // namespace

// Nodes take their parameters by value, by the host's custom.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
BeamForming::BeamForming(std::string nodeName, FD::ParameterSet params)
    : SeparationNode(SPEC, std::move(nodeName), params, __LINE__) {
  nanHidesInfinity = true;
  readMethod();
  readFrame();
  readTransferFunctionSource();
  initWFilename = stringParameter("INITW_FILENAME");
  useInitW = isGiven("INITW_FILENAME") ? 1 : 0;
  const BF::EngineParameters engineParameters = readMethodParameters();
  readDebug();

  const BF::TransformFunctionDatabase database = loadDatabase();
  micLocations = database.micLocations;
  if (bfMethod == BF::BF_ALGORITHM_GSS || bfMethod == BF::BF_ALGORITHM_GHDSS) {
    fail("Adapter not implemented.");
  }
  makeEngine(bfMethod, engineParameters);
  engine->setTransformFunctionDatabase(database);
}

void BeamForming::readMethod() {
  static const std::map<std::string, BF::BfAlgorithmType> METHODS = {
      {"DS", BF::BF_ALGORITHM_DS},      {"WDS", BF::BF_ALGORITHM_WDS},
      {"NULL", BF::BF_ALGORITHM_NULL},  {"ILSE", BF::BF_ALGORITHM_ILSE},
      {"LCMV", BF::BF_ALGORITHM_LCMV},  {"GJ", BF::BF_ALGORITHM_GJ},
      {"GSS", BF::BF_ALGORITHM_GSS},    {"GICA", BF::BF_ALGORITHM_GICA},
      {"GHDSS", BF::BF_ALGORITHM_GHDSS}};
  const auto method = METHODS.find(stringParameter("BF_METHOD"));
  if (method == METHODS.end()) fail("Unexpected BeamForming:BF_METHOD is set.");
  bfMethod = method->second;
}

BF::EngineParameters BeamForming::readMethodParameters() const {
  BF::EngineParameters p;
  p.lcAdaptive = p.ssAdaptive = false;
  p.mu = p.mu_ss = 0.001F;
  p.scale = 0.1F;
  if (bfMethod == BF::BF_ALGORITHM_GJ) {
    readConstraintStep("GJ_LC_METHOD", "GJ_LC_MYU", p);
  } else if (bfMethod == BF::BF_ALGORITHM_GICA) {
    readSeparationStep(p);
    readConstraintStep("GICA_LC_METHOD", "GICA_LC_MYU", p);
  } else if (bfMethod == BF::BF_ALGORITHM_LCMV) {
    readConstraintStep("LCMV_LC_METHOD", "LCMV_LC_MYU", p);
  }
  return p;
}

// A text that is neither "FIX" nor "ADAPTIVE" changes nothing.
void BeamForming::readConstraintStep(const char* methodName, const char* stepName,
                                     BF::EngineParameters& p) const {
  if (!isGiven(methodName)) return;
  const std::string method = stringParameter(methodName);
  if (method != "FIX" && method != "ADAPTIVE") return;
  p.lcAdaptive = method == "ADAPTIVE";
  p.mu = floatParameter(stepName);
}

// "LC_MYU" is a fixed step that takes its size from the constraint's.
void BeamForming::readSeparationStep(BF::EngineParameters& p) const {
  if (isGiven("GICA_SS_METHOD")) {
    const std::string method = stringParameter("GICA_SS_METHOD");
    if (method == "FIX" || method == "LC_MYU" || method == "ADAPTIVE") {
      p.ssAdaptive = method == "ADAPTIVE";
      p.mu_ss = floatParameter(method == "LC_MYU" ? "GICA_LC_MYU" : "GICA_SS_MYU");
    }
  }
  p.scale = floatParameter("GICA_SS_SCAL");
}
