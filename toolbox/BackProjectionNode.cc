#include "BackProjectionNode.h"

#include <fmt/format.h>

#include <optional>
#include <set>
#include <utility>

#include "dsp/DataError.h"
#include "dsp/FrameLayout.h"

const NodeSpec BackProjection::SPEC = {
    .type = "BackProjection",
    .sourceFile = "BackProjectionNode.cc",
    .text =
        "Gives separated spectra the scale of a reference microphone, bin by bin. MSNR needs it, "
        "whose output has an arbitrary scale in each bin.",
    .inputs =
        {{"INPUT", SPECTRUM_MAP_TYPE, "Separated spectra by source id"},
         {"INPUT_FRAMES", SPECTRA_TYPE, "The spectra that they were separated from"},
         {"SOURCES", SOURCES_TYPE,
          "Optional: the active targets; a source's scale is learnt only in frames that list it",
          NodeSpec::OPTIONAL}},
    .outputs = {{"OUTPUT", SPECTRUM_MAP_TYPE,
                 "The spectra as the reference microphone would hear each source alone"}},
    .parameters = {{"LENGTH", "int", nullptr, "Samples per frame, as in AudioFrames"},
                   {"REFERENCE", "int", "1",
                    "The reference microphone, counted from 1 among the channels in use"},
                   {"FORGETTING", "float", "0.97",
                    "How much of its averages a new frame leaves, 0 to 1; 0.97 remembers about 33 "
                    "frames. More is steadier, less follows filters that still adapt"}}};

namespace {

const int registered = declareNode<BackProjection>();

}  // namespace

BackProjection::BackProjection(std::string nodeName, const FD::ParameterSet& params)
    : ToolboxNode(SPEC, std::move(nodeName), params, __LINE__) {
  inOrder = true;
  checked([&] {
    const int length = intParameter("LENGTH");
    bins = Audio::FrameLayout(length, length).bins();
    reference = intParameter("REFERENCE") - 1;
    if (reference < 0) {
      throw DataError(
          fmt::format("REFERENCE is {}, expected a microphone's number from 1", reference + 1));
    }
    projection = Audio::BackProjection(bins, floatParameter("FORGETTING"));
  });
}

void BackProjection::reset() {
  ToolboxNode::reset();
  projection = Audio::BackProjection(bins, floatParameter("FORGETTING"));
}

const std::complex<float>* BackProjection::checkedReference(const SpectrumMatrix& frames) {
  if (frames.nrows() <= static_cast<std::size_t>(reference) ||
      frames.ncols() != static_cast<std::size_t>(bins)) {
    fail(
        fmt::format("INPUT_FRAMES has {} microphones and {} bins, expected REFERENCE = {} or more "
                    "microphones and LENGTH/2+1 = {} bins.",
                    frames.nrows(), frames.ncols(), reference + 1, bins));
  }
  return frames[static_cast<std::size_t>(reference)];
}

void BackProjection::calculate(int /*output_id*/, int count, FD::Buffer& out) {
  const FD::ObjectRef mapRef = pull("INPUT", count);
  const FD::ObjectRef framesRef = pull("INPUT_FRAMES", count);
  const auto* X = checkedReference(FD::object_cast<SpectrumMatrix>(framesRef));
  std::optional<std::set<int>> targets;
  if (isConnected("SOURCES")) targets = pullIds("SOURCES", count);

  auto* projected = new SpectrumMap;
  const FD::ObjectRef owner(projected);
  for (const auto& [id, spectrum] : FD::object_cast<SpectrumMap>(mapRef)) {
    const auto& Y = FD::object_cast<SpectrumVector>(spectrum);
    if (Y.size() != static_cast<std::size_t>(bins)) {
      fail(fmt::format("The spectrum of source {} has {} bins, expected LENGTH/2+1 = {}.", id,
                       Y.size(), bins));
    }
    auto* scaled = new SpectrumVector(Y.size());
    const FD::ObjectRef scaledOwner(scaled);
    projection.project(id, X, Y.data(), !targets || targets->count(id) != 0, scaled->data());
    projected->insert({id, scaledOwner});
  }
  out[count] = owner;
}
