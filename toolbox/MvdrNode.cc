#include "MvdrNode.h"

#include <fmt/format.h>

#include <cmath>
#include <utility>
#include <vector>

#include "audio/SamplingRates.h"
#include "dsp/DataError.h"
#include "dsp/FrameLayout.h"
#include "dsp/Window.h"
#include "nodes/FrameConversion.h"
#include "separation/ResponseFile.h"

const NodeSpec MVDR::SPEC = {
    .type = "MVDR",
    .sourceFile = "MvdrNode.cc",
    .text =
        "Separates sources in a room by MVDR beamforming with covariances from whole impulse "
        "responses, so that the frame may be shorter than the room's echoes.",
    .inputs = {{"INPUT_FRAMES", SPECTRA_TYPE, "Spectra of all microphones, from AudioFrames"},
               {"INPUT_SOURCES", SOURCES_TYPE,
                "The sources to separate: their ids and positions in the responses' coordinates"},
               {"INPUT_NOISE_SOURCES", SOURCES_TYPE,
                "Optional: sources that are kept out of the others", NodeSpec::OPTIONAL}},
    .outputs = {{"OUTPUT", SPECTRUM_MAP_TYPE,
                 "Source id to its spectrum as the reference microphone hears it, targets and "
                 "noise sources alike"}},
    .parameters = {
        {"LENGTH", "int", nullptr, "Samples per frame, as in AudioFrames"},
        {"ADVANCE", "int", nullptr, "Samples from one frame to the next, as in AudioFrames"},
        {"SAMPLING_RATE", "int", nullptr, "Sampling rate in Hz, as in AudioFrames"},
        {"FILENAME", "string", nullptr,
         "Impulse responses from positions to the microphones (a SOFA file, best of "
         "DataType FIR); those of another rate are converted"},
        {"WINDOW", "string", "HANN", "Analysis window, as in AudioFrames"},
        {"REFERENCE", "int", "1",
         "The reference microphone, counted from 1 among the channels in use"},
        {"LOADING", "float", "0.0001",
         "Noise of the microphones' own, as a share of the sources' mean power; more "
         "is safer where positions and responses are not exact"},
        {"FRAMES", "int", "4",
         "Frames that a filter takes, half a frame apart, 1 to 16: the newest and "
         "earlier ones; more hold echoes back longer, without more delay"}}};

namespace {

const int registered = declareNode<MVDR>();

}  // namespace

MVDR::MVDR(std::string nodeName, const FD::ParameterSet& params)
    : ToolboxNode(SPEC, std::move(nodeName), params, __LINE__) {
  inOrder = true;
  checked([&] { makeEngine(); });
}

void MVDR::makeEngine() {
  const int length = intParameter("LENGTH");
  const Audio::FrameLayout layout(length, intParameter("ADVANCE"));  // checks them
  const int rate = Audio::checkedSamplingRate(intParameter("SAMPLING_RATE"));
  const float loading = floatParameter("LOADING");
  if (!(loading > 0 && std::isfinite(loading))) {
    throw DataError(fmt::format("LOADING is {}, expected a number above 0", loading));
  }
  const int frames = intParameter("FRAMES");
  if (frames < 1 || frames > Separation::MAX_MVDR_FRAMES) {
    throw DataError(
        fmt::format("FRAMES is {}, expected 1 to {}", frames, Separation::MAX_MVDR_FRAMES));
  }
  const std::vector<float> window =
      Audio::makeWindow(Audio::windowNamed(stringParameter("WINDOW")), length);
  Separation::ImpulseResponses responses = readImpulseResponses(stringParameter("FILENAME"), rate);
  const int reference = intParameter("REFERENCE");
  if (reference < 1 || static_cast<std::size_t>(reference) > responses.microphones) {
    throw DataError(
        fmt::format("REFERENCE is {}, expected a microphone's number from 1", reference));
  }
  engine = std::make_unique<Separation::Mvdr>(
      Separation::SpatialCovariance(
          std::move(responses), window,
          Separation::FrameStack::halfOverlapping(frames, length, layout.advance())),
      rate, reference - 1, loading);
}

void MVDR::calculate(int /*output_id*/, int count, FD::Buffer& out) {
  const FD::ObjectRef framesRef = pull("INPUT_FRAMES", count);
  const auto& frames = FD::object_cast<SpectrumMatrix>(framesRef);
  if (static_cast<int>(frames.nrows()) != engine->numMic ||
      static_cast<int>(frames.ncols()) != engine->numFreq) {
    fail(
        fmt::format("INPUT_FRAMES has {} microphones and {} bins, expected the {} microphones of "
                    "FILENAME and LENGTH/2+1 = {} bins.",
                    frames.nrows(), frames.ncols(), engine->numMic, engine->numFreq));
  }
  std::vector<BF::SourceLocation> listed;
  const FD::ObjectRef targets = pull("INPUT_SOURCES", count);
  appendLocations(FD::object_cast<SourceList>(targets), true, listed);
  if (isConnected("INPUT_NOISE_SOURCES")) {
    const FD::ObjectRef noise = pull("INPUT_NOISE_SOURCES", count);
    appendLocations(FD::object_cast<SourceList>(noise), false, listed);
  }
  auto* spectra = new SpectrumMap;
  out[count] = FD::ObjectRef(spectra);
  if (listed.empty()) {
    engine->hear(widened(frames));
  } else {
    separateFrame(*engine, frames, listed, nullptr, *spectra);
  }
}
