#include "nodes/MSNR.h"

#include <utility>

#include "matrix/Exceptions.h"
#include "nodes/NodeReports.h"

const NodeSpec MSNR::SPEC = {
    .type = "MSNR",
    .sourceFile = "MSNR.cc",
    .text =
        "Separates sources by maximum signal-to-noise ratio from their activity alone, without "
        "transfer functions.",
    .inputs = {INPUT_FRAMES,
               {"INPUT_SOURCES", SOURCES_TYPE,
                "The sources that are active now (the targets); only their ids matter."},
               {"INPUT_NOISE_SOURCES", SOURCES_TYPE,
                "Optional: sources whose frames count as noise; list a source here while it is "
                "silent, so that it gathers noise statistics.",
                NodeSpec::OPTIONAL}},
    .outputs = {{"OUTPUT", SPECTRUM_MAP_TYPE,
                 "Source id to its separated spectrum, targets and noise sources alike, with an "
                 "arbitrary scale in every bin."}},
    .parameters = {
        {"LENGTH", "int", nullptr,
         "Frame length in samples, the transform length that the spectra were made with. "
         "Required."},
        {"SAMPLING_RATE", "int", nullptr, "Sampling rate in Hz of the recording. Required."},
        {"ALPHA", "float", "0.99",
         "Forgetting factor of the correlation averages: 1 keeps the old average, 0 takes the "
         "current frame alone."},
        {"DECOMPOSITION_ALGORITHM", "string", "GEVD",
         "GEVD (generalised eigenvalues) or GSVD (generalised singular values)."},
        ENABLE_DEBUG}};

namespace {

const int registered = declareNode<MSNR>();

}  // namespace

// Nodes take their parameters by value, by the host's custom.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
MSNR::MSNR(std::string nodeName, FD::ParameterSet params)
    : SeparationNode(SPEC, std::move(nodeName), params, __LINE__) {
  readFrame();
  BF::EngineParameters engineParameters;
  engineParameters.alpha = floatParameter("ALPHA");
  engineParameters.decompositionAlgorithm = stringParameter("DECOMPOSITION_ALGORITHM");
  readDebug();
  try {
    makeEngine(BF::BF_ALGORITHM_CMSNR, engineParameters);
  } catch (const BF::InvalidStateException& fault) {
    reportEngineFault(*this, "MSNR", fault,
                      "DECOMPOSITION_ALGORITHM is \"" + engineParameters.decompositionAlgorithm +
                          "\", expected GEVD or GSVD");
    throw;
  }
}

// The engine has no database that says so.
void MSNR::prepareFrame(int M, int /*K*/, int /*count*/) { engine->numMic = M; }
