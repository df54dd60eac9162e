#include "NoiseCorrelationNode.h"

#include <fmt/format.h>

#include <cmath>
#include <iostream>
#include <utility>
#include <vector>

#include "audio/SamplingRates.h"
#include "dsp/AudioError.h"
#include "separation/NoiseFile.h"

namespace {

const int registered =
    FD::Node::addFactory("NoiseCorrelation",
                         new FD::NodeFactory<NoiseCorrelation>("NoiseCorrelation")) +
    FD::Node::addXPM("NoiseCorrelation", nullptr);

const char* const SOURCE_FILE = "NoiseCorrelationNode.cc";

}  // namespace

const NodeSpec NoiseCorrelation::SPEC = {"NoiseCorrelation",
                                         {{"INPUT", true}, {"SOURCES", true}},
                                         {"OUTPUT"},
                                         {{"MODE", "string", "RANGES"},
                                          {"LENGTH", "int", nullptr},
                                          {"ADVANCE", "int", nullptr},
                                          {"SAMPLING_RATE", "int", nullptr},
                                          {"FILENAME", "string", ""},
                                          {"RANGES", "string", ""},
                                          {"WINDOW", "string", "HANN"},
                                          {"CHANNELS", "string", ""},
                                          {"RESAMPLE", "bool", "false"},
                                          {"FORGETTING", "float", "0.98"},
                                          {"LOADING", "float", "0.001"},
                                          {"NORMALIZE", "bool", "true"}}};

NoiseCorrelation::NoiseCorrelation(std::string nodeName, const FD::ParameterSet& params)
    : ToolboxNode(SPEC, std::move(nodeName), params) {
  inOrder = true;
  try {
    const float loading = floatParameter("LOADING");
    if (!(loading >= 0 && std::isfinite(loading))) {
      throw Audio::AudioError(fmt::format("LOADING is {}, expected 0 or more", loading));
    }
    isRunning = stringParameter("MODE") == "RUNNING";
    if (isRunning) {
      const Audio::NoiseCorrelation check(1, 1, floatParameter("FORGETTING"));
    } else {
      noise = std::make_unique<Audio::NoiseCorrelation>(noiseOfFile());
      fixedResult = result();
    }
  } catch (const Audio::AudioError& error) {
    throw new FrozenNodeException(this, error.what(), SOURCE_FILE, __LINE__);
  }
}

Audio::NoiseCorrelation NoiseCorrelation::noiseOfFile() const {
  const std::string mode = stringParameter("MODE");
  if (mode != "RANGES" && mode != "FILE") {
    throw Audio::AudioError(fmt::format("MODE is \"{}\", expected RANGES, FILE or RUNNING", mode));
  }
  const std::string path = stringParameter("FILENAME");
  if (path.empty()) {
    throw Audio::AudioError(
        fmt::format("FILENAME is empty, expected a recording for MODE {}", mode));
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
    throw new FrozenNodeException(
        this,
        fmt::format("A frame of {} x {} values follows frames of {} x {}.", microphones, bins,
                    noise->microphones(), noise->bins()),
        SOURCE_FILE, __LINE__);
  }
  if (pullIds("SOURCES", count).empty() && microphones > 0) noise->add(frame[0]);
}

FD::ObjectRef NoiseCorrelation::result() const {
  const auto M = static_cast<std::size_t>(noise->microphones());
  auto matrices = std::make_unique<SpectrumMatrix>(static_cast<std::size_t>(noise->bins()), M * M);
  if (M > 0) noise->write(floatParameter("LOADING"), boolParameter("NORMALIZE"), (*matrices)[0]);
  return FD::ObjectRef(matrices.release());
}
