#include "NoiseCorrelationNode.h"

#include <fmt/format.h>

#include <cmath>
#include <iostream>
#include <utility>
#include <vector>

#include "audio/SamplingRates.h"
#include "dsp/DataError.h"
#include "separation/NoiseFile.h"

const NodeSpec NoiseCorrelation::SPEC = {
    .type = "NoiseCorrelation",
    .sourceFile = "NoiseCorrelationNode.cc",
    .text =
        "Estimates the correlation of the noise between the microphones, for ML's input "
        "INPUT_NOISE_CM.",
    .inputs =
        {{"INPUT", SPECTRA_TYPE, "For MODE RUNNING: spectra of all microphones, from AudioFrames",
          NodeSpec::OPTIONAL},
         {"SOURCES", SOURCES_TYPE,
          "For MODE RUNNING: the active targets; the mean learns from the frames that have none",
          NodeSpec::OPTIONAL}},
    .outputs = {{"OUTPUT", SPECTRA_TYPE,
                 "Noise correlation matrices for ML: a row per bin, element (i, j) at column i M + "
                 "j for M microphones"}},
    .parameters = {
        {"MODE", "string", "RANGES",
         "Where the noise is: RANGES (stated times of a file), FILE (a whole noise recording) or "
         "RUNNING (frames without an active target)"},
        {"LENGTH", "int", nullptr, "Samples per frame, as in AudioFrames"},
        {"ADVANCE", "int", nullptr, "Samples from one frame to the next, as in AudioFrames"},
        {"SAMPLING_RATE", "int", nullptr, "Sampling rate in Hz, as in AudioFrames"},
        {"FILENAME", "string", "",
         "For MODE RANGES: the recording; for MODE FILE: a recording of the noise alone by the "
         "same microphones"},
        {"RANGES", "string", "",
         "For MODE RANGES: when FILENAME holds noise alone, in seconds, such as 0-1.5,4-5"},
        {"WINDOW", "string", "HANN", "Analysis window, as in AudioFrames"},
        {"CHANNELS", "string", "", "Channels of FILENAME, as in AudioFrames; empty: all"},
        {"RESAMPLE", "bool", "false",
         "true: convert FILENAME to SAMPLING_RATE if it has another rate"},
        {"FORGETTING", "float", "0.98",
         "For MODE RUNNING: how much of the mean a new frame leaves, 0 to 1; 0.98 remembers about "
         "50 frames of noise"},
        {"LOADING", "float", "0.001",
         "What is added to each matrix's diagonal, as a share of its mean; more makes separation "
         "more robust and less sharp"},
        {"NORMALIZE", "bool", "true",
         "true: scale each matrix to a mean diagonal of 1, so that quiet recordings work like loud "
         "ones, and bins without noise become the identity"}}};

namespace {

const int registered = declareNode<NoiseCorrelation>();

}  // namespace

NoiseCorrelation::NoiseCorrelation(std::string nodeName, const FD::ParameterSet& params)
    : ToolboxNode(SPEC, std::move(nodeName), params, __LINE__) {
  inOrder = true;
  checked([&] {
    const float loading = floatParameter("LOADING");
    if (!(loading >= 0 && std::isfinite(loading))) {
      throw DataError(fmt::format("LOADING is {}, expected 0 or more", loading));
    }
    isRunning = stringParameter("MODE") == "RUNNING";
    if (isRunning) {
      const Audio::NoiseCorrelation check(1, 1, floatParameter("FORGETTING"));
    } else {
      noise = std::make_unique<Audio::NoiseCorrelation>(noiseOfFile());
      fixedResult = result();
    }
  });
}

Audio::NoiseCorrelation NoiseCorrelation::noiseOfFile() const {
  const std::string mode = stringParameter("MODE");
  if (mode != "RANGES" && mode != "FILE") {
    throw DataError(fmt::format("MODE is \"{}\", expected RANGES, FILE or RUNNING", mode));
  }
  const std::string path = stringParameter("FILENAME");
  if (path.empty()) {
    throw DataError(fmt::format("FILENAME is empty, expected a recording for MODE {}", mode));
  }
  std::vector<Audio::TimeRange> ranges;
  if (mode == "RANGES") ranges = Audio::parseTimeRanges(stringParameter("RANGES"));

  const Audio::FrameLayout layout(intParameter("LENGTH"), intParameter("ADVANCE"));
  Audio::AudioReaderOptions options;
  options.channels = stringParameter("CHANNELS");
  options.samplingRate = Audio::checkedSamplingRate(intParameter("SAMPLING_RATE"));
  options.resample = boolParameter("RESAMPLE");
  options.reportGap = layout.length();
  options.warn = [](const std::string& text) {
    std::cerr << "NoiseCorrelation: " << text << std::endl;
  };
  Audio::FrameReader reader(Audio::AudioReader(path, options), layout,
                            Audio::windowNamed(stringParameter("WINDOW")));
  return Audio::noiseOfFile(reader, ranges);
}

int NoiseCorrelation::translateInput(std::string inputName) {
  const int number = ToolboxNode::translateInput(std::move(inputName));
  inputsCache.resize(inputs.size());
  inputsCache[static_cast<std::size_t>(number)].lookBack = 1;
  return number;
}

void NoiseCorrelation::reset() {
  ToolboxNode::reset();
  if (isRunning) noise.reset();
}

void NoiseCorrelation::calculate(int /*output_id*/, int count, FD::Buffer& out) {
  if (isRunning) update(count);
  out[count] = isRunning ? result() : fixedResult;
}

void NoiseCorrelation::update(int count) {
  const FD::ObjectRef input = pull("INPUT", count);
  const auto& frame = FD::object_cast<SpectrumMatrix>(input);
  const auto microphones = static_cast<int>(frame.nrows());
  const auto bins = static_cast<int>(frame.ncols());
  if (!noise) {
    noise =
        std::make_unique<Audio::NoiseCorrelation>(microphones, bins, floatParameter("FORGETTING"));
  }
  if (microphones != noise->microphones() || bins != noise->bins()) {
    fail(fmt::format("A frame of {} x {} values follows frames of {} x {}.", microphones, bins,
                     noise->microphones(), noise->bins()));
  }
  if (pullIds("SOURCES", count).empty() && microphones > 0) noise->add(frame[0]);
}

FD::ObjectRef NoiseCorrelation::result() const {
  const auto M = static_cast<std::size_t>(noise->microphones());
  auto matrices = std::make_unique<SpectrumMatrix>(static_cast<std::size_t>(noise->bins()), M * M);
  if (M > 0) noise->write(floatParameter("LOADING"), boolParameter("NORMALIZE"), (*matrices)[0]);
  return FD::ObjectRef(matrices.release());
}
