#include "MaskRefinementNode.h"

#include <fmt/format.h>

#include <cmath>
#include <set>
#include <utility>

#include "audio/SamplingRates.h"
#include "dsp/DataError.h"
#include "dsp/FrameLayout.h"
#include "separation/refine/Masks.h"

const NodeSpec MaskRefinement::SPEC = {
    .type = "MaskRefinement",
    .sourceFile = "MaskRefinementNode.cc",
    .text =
        "Separates anew, by MVDR, what a node before it separated: who sounds where in time and "
        "frequency tells how each source reaches the microphones, echoes included, which a "
        "free-field database does not know. Needs two sources that are listed together.",
    .inputs =
        {{"INPUT", SPECTRUM_MAP_TYPE, "Separated spectra by source id"},
         {"INPUT_FRAMES", SPECTRA_TYPE, "The spectra that they were separated from"},
         {"SOURCES", SOURCES_TYPE,
          "Optional: the sources that take part, for MSNR the active targets; without it all in "
          "INPUT do",
          NodeSpec::OPTIONAL}},
    .outputs = {{"OUTPUT", SPECTRUM_MAP_TYPE,
                 "The sources that take part, as the reference microphone hears them"}},
    .parameters = {
        {"LENGTH", "int", nullptr, "Samples per frame, as in AudioFrames"},
        {"ADVANCE", "int", nullptr, "Samples from one frame to the next, as in AudioFrames"},
        {"SAMPLING_RATE", "int", nullptr, "Sampling rate in Hz, as in AudioFrames"},
        {"MEMORY", "float", "2",
         "Seconds that the covariances reach back; less follows moving sources, more is steadier"},
        {"LOADING", "float", "0.0001",
         "Noise of the microphones' own, as a share of the sources' mean power"},
        {"REFERENCE", "int", "1",
         "The reference microphone, counted from 1 among the channels in use"},
        {"POST_MASK", "float", "1",
         "Multiplies each output by its share of the power of all, but at least by this, 0 to 1; "
         "1: not at all"}}};

namespace {

const int registered = declareNode<MaskRefinement>();

}  // namespace

MaskRefinement::MaskRefinement(std::string nodeName, const FD::ParameterSet& params)
    : ToolboxNode(SPEC, std::move(nodeName), params, __LINE__) {
  inOrder = true;
  checked([&] {
    const Audio::FrameLayout layout(intParameter("LENGTH"), intParameter("ADVANCE"));
    bins = layout.bins();
    const int rate = Audio::checkedSamplingRate(intParameter("SAMPLING_RATE"));
    const double memory = floatParameter("MEMORY");
    if (!(memory > 0)) {
      throw DataError(fmt::format("MEMORY is {}, expected a number above 0", memory));
    }
    forgetting = std::exp(-layout.advance() / (memory * rate));
    loading = floatParameter("LOADING");
    if (!(loading > 0 && std::isfinite(loading))) {
      throw DataError(fmt::format("LOADING is {}, expected a number above 0", loading));
    }
    postMask = floatParameter("POST_MASK");
    if (!(postMask >= 0 && postMask <= 1)) {
      throw DataError(fmt::format("POST_MASK is {}, expected 0 to 1", postMask));
    }
    reference = intParameter("REFERENCE") - 1;
    if (reference < 0) {
      throw DataError(
          fmt::format("REFERENCE is {}, expected a microphone's number from 1", reference + 1));
    }
  });
}

void MaskRefinement::reset() {
  ToolboxNode::reset();
  refinement.reset();
}

void MaskRefinement::loadFrame(const SpectrumMatrix& frames) {
  const auto M = static_cast<int>(frames.nrows());
  const bool isAnother = refinement && M != X.getRowCount();
  if (M <= reference || isAnother || frames.ncols() != static_cast<std::size_t>(bins)) {
    fail(
        fmt::format("INPUT_FRAMES has {} microphones and {} bins, expected REFERENCE = {} or more "
                    "microphones and LENGTH/2+1 = {} bins.",
                    M, frames.ncols(), reference + 1, bins));
  }
  if (!refinement) {
    refinement.emplace(M, bins, forgetting, loading, reference);
  }
  BF::reshape(X, M, bins);
  for (int i = 0; i < M * bins; ++i) X.data()[i] = std::complex<double>(frames[0][i]);
}

void MaskRefinement::loadSeparated(const SpectrumMap& separated, int count) {
  std::optional<std::set<int>> chosen;
  if (isConnected("SOURCES")) chosen = pullIds("SOURCES", count);
  listed.clear();
  rows.clear();
  for (const auto& entry : separated) {
    if (chosen && chosen->count(entry.first) == 0) continue;
    rows.push_back(listed.size());
    listed.emplace_back(0.0, 0.0, 0.0, entry.first, true);
  }
  BF::reshape(Y, static_cast<int>(listed.size()), bins);
  for (const std::size_t row : rows) {
    const auto& y = FD::object_cast<SpectrumVector>(separated.at(listed[row].id));
    if (y.size() != static_cast<std::size_t>(bins)) {
      fail(fmt::format("The spectrum of source {} has {} bins, expected LENGTH/2+1 = {}.",
                       listed[row].id, y.size(), bins));
    }
    for (int k = 0; k < bins; ++k) {
      Y.setElementAt(static_cast<int>(row), k,
                     std::complex<double>(y[static_cast<std::size_t>(k)]));
    }
  }
}

void MaskRefinement::calculate(int /*output_id*/, int count, FD::Buffer& out) {
  const FD::ObjectRef mapRef = pull("INPUT", count);
  const FD::ObjectRef framesRef = pull("INPUT_FRAMES", count);
  loadFrame(FD::object_cast<SpectrumMatrix>(framesRef));
  loadSeparated(FD::object_cast<SpectrumMap>(mapRef), count);
  auto* refined = new SpectrumMap;
  out[count] = FD::ObjectRef(refined);
  if (listed.empty()) return;
  refinement->refine(listed, rows, X, Y);
  if (postMask < 1.0) Separation::applyMasks(postMask, rows, masks, Y);
  for (const std::size_t row : rows) {
    auto* spectrum = new SpectrumVector(static_cast<std::size_t>(bins));
    refined->insert({listed[row].id, FD::ObjectRef(spectrum)});
    for (int k = 0; k < bins; ++k) {
      (*spectrum)[static_cast<std::size_t>(k)] =
          std::complex<float>(Y.getElementAt(static_cast<int>(row), k));
    }
  }
}
