#include "nodes/ML.h"

#include <complex>
#include <iostream>
#include <utility>
#include <vector>

const NodeSpec ML::SPEC = {
    .type = "ML",
    .sourceFile = "ML.cc",
    .text =
        "Separates localised sources by maximum likelihood: minimum noise at the output for the "
        "given noise statistics.",
    .inputs = {INPUT_FRAMES,
               INPUT_SOURCES,
               {"INPUT_NOISE_CM", SPECTRA_TYPE,
                "Noise correlation matrices, a row per bin and microphones × microphones columns "
                "(row-major). Required; frame 0 is not read."}},
    .outputs = {{"OUTPUT", SPECTRUM_MAP_TYPE,
                 "Source id to its separated spectrum. Every filter is shifted by half a frame: "
                 "multiply bin k by (-1)^k to undo it."}},
    .parameters = {LENGTH,
                   SAMPLING_RATE,
                   TF_CONJ_FILENAME,
                   {"REG_FACTOR", "float", nullptr,
                    "Regularisation: the multiple of each noise matrix's Frobenius norm added to "
                    "its diagonal, for instance 0.01. Required."},
                   ENABLE_DEBUG}};

namespace {

const int registered = declareNode<ML>();

}  // namespace

// Nodes take their parameters by value, by the host's custom.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
ML::ML(std::string nodeName, FD::ParameterSet params)
    : SeparationNode(SPEC, std::move(nodeName), params, __LINE__) {
  readFrame();
  readTransferFunctionSource();
  if (!isGiven("REG_FACTOR")) fail("ML:parameter REG_FACTOR is not set.");
  BF::EngineParameters engineParameters;
  engineParameters.regFactor = floatParameter("REG_FACTOR");
  readDebug();

  const BF::TransformFunctionDatabase database = loadDatabase();
  makeEngine(BF::BF_ALGORITHM_CML, engineParameters);
  engine->setTransformFunctionDatabase(database);
}

// Refreshes the engine's M × M noise correlation matrices of K bins for this frame.
void ML::prepareFrame(int M, int K, int count) {
  if (!isConnected("INPUT_NOISE_CM")) {
    std::cout << "When you use ML, you must input noise correlation matrix to INPUT_NOISE_CM."
              << std::endl;
    fail("ML needs INPUT_NOISE_CM");
  }
  std::vector<BF::Matrix>& noise = engine->noiseCorrelationMatrices;
  if (count == 0) {
    noise.assign(K, BF::Matrix(M, M));
    return;
  }
  const FD::ObjectRef noiseRef = pull("INPUT_NOISE_CM", count);
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

void ML::requireNoiseShape(const SpectrumMatrix& correlations, int M, int K) {
  const int rows = static_cast<int>(correlations.nrows());
  const int columns = static_cast<int>(correlations.ncols());
  if (rows == K && columns == M * M) return;
  fail("ML:INPUT_NOISE_CM has " + std::to_string(rows) + " rows and " + std::to_string(columns) +
       " columns where " + std::to_string(K) + " bins and " + std::to_string(M) +
       " microphones need " + std::to_string(K) + " and " + std::to_string(M * M) + ".");
}
