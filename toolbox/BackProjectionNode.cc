#include "BackProjectionNode.h"

#include <fmt/format.h>

#include <optional>
#include <set>
#include <utility>

#include "dsp/DataError.h"
#include "dsp/FrameLayout.h"

namespace {

const int registered =
    FD::Node::addFactory("BackProjection", new FD::NodeFactory<BackProjection>("BackProjection")) +
    FD::Node::addXPM("BackProjection", nullptr);

const char* const SOURCE_FILE = "BackProjectionNode.cc";

}  // namespace

const NodeSpec BackProjection::SPEC = {
    "BackProjection",
    {{"INPUT", false}, {"INPUT_FRAMES", false}, {"SOURCES", true}},
    {"OUTPUT"},
    {{"LENGTH", "int", nullptr}, {"REFERENCE", "int", "1"}, {"FORGETTING", "float", "0.97"}}};

BackProjection::BackProjection(std::string nodeName, const FD::ParameterSet& params)
    : ToolboxNode(SPEC, std::move(nodeName), params) {
  inOrder = true;
  try {
    const int length = intParameter("LENGTH");
    bins = Audio::FrameLayout(length, length).bins();
    reference = intParameter("REFERENCE") - 1;
    if (reference < 0) {
      throw DataError(
          fmt::format("REFERENCE is {}, expected a microphone's number from 1", reference + 1));
    }
    projection = Audio::BackProjection(bins, floatParameter("FORGETTING"));
  } catch (const DataError& error) {
    throw new FrozenNodeException(this, error.what(), SOURCE_FILE, __LINE__);
  }
}

void BackProjection::reset() {
  ToolboxNode::reset();
  projection = Audio::BackProjection(bins, floatParameter("FORGETTING"));
}

const std::complex<float>* BackProjection::checkedReference(const SpectrumMatrix& frames) {
  if (frames.nrows() <= static_cast<std::size_t>(reference) ||
      frames.ncols() != static_cast<std::size_t>(bins)) {
    throw new FrozenNodeException(
        this,
        fmt::format("INPUT_FRAMES has {} microphones and {} bins, expected REFERENCE = {} or more "
                    "microphones and LENGTH/2+1 = {} bins.",
                    frames.nrows(), frames.ncols(), reference + 1, bins),
        SOURCE_FILE, __LINE__);
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
      throw new FrozenNodeException(
          this,
          fmt::format("The spectrum of source {} has {} bins, expected LENGTH/2+1 = {}.", id,
                      Y.size(), bins),
          SOURCE_FILE, __LINE__);
    }
    auto* scaled = new SpectrumVector(Y.size());
    const FD::ObjectRef scaledOwner(scaled);
    projection.project(id, X, Y.data(), !targets || targets->count(id) != 0, scaled->data());
    projected->insert({id, scaledOwner});
  }
  out[count] = owner;
}
