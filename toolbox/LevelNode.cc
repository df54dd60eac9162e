#include "LevelNode.h"

#include <utility>

const NodeSpec Level::SPEC = {
    .type = "Level",
    .sourceFile = "LevelNode.cc",
    .text =
        "Brings spectra to a stated level, between AudioFrames and MSNR: without it, MSNR gives "
        "more or less for soft and loud recordings. BackProjection, linked to AudioFrames itself, "
        "brings what is separated back to the recording's level.",
    .inputs = {{"INPUT", SPECTRA_TYPE, "Spectra of all microphones, from AudioFrames"}},
    .outputs = {{"OUTPUT", SPECTRA_TYPE,
                 "The spectra times the gain that follows from all frames so far"}},
    .parameters = {}};

namespace {

const int registered = declareNode<Level>();

}  // namespace

Level::Level(std::string nodeName, const FD::ParameterSet& params)
    : ToolboxNode(SPEC, std::move(nodeName), params, __LINE__) {
  inOrder = true;
}

void Level::reset() {
  ToolboxNode::reset();
  level = Separation::Level();
}

void Level::calculate(int /*output_id*/, int count, FD::Buffer& out) {
  const FD::ObjectRef input = pull("INPUT", count);
  const auto& X = FD::object_cast<SpectrumMatrix>(input);
  auto* scaled = new SpectrumMatrix(X.nrows(), X.ncols());
  out[count] = FD::ObjectRef(scaled);
  const std::size_t size = X.nrows() * X.ncols();
  if (size == 0) return;
  level.add(X[0], size);
  const float gain = level.gain();
  for (std::size_t i = 0; i < size; ++i) (*scaled)[0][i] = X[0][i] * gain;
}
