#include "AudioFrames.h"

#include <iostream>
#include <utility>

#include "audio/SamplingRates.h"
#include "dsp/AudioError.h"

namespace {

const int registered =
    FD::Node::addFactory("AudioFrames", new FD::NodeFactory<AudioFrames>("AudioFrames")) +
    FD::Node::addXPM("AudioFrames", nullptr);

const char* const SOURCE_FILE = "AudioFrames.cc";

}  // namespace

const NodeSpec AudioFrames::SPEC = {"AudioFrames",
                                    {},
                                    {"OUTPUT", "NOT_EOF", "SAMPLES", "LAST_FRAME"},
                                    {{"FILENAME", "string", nullptr},
                                     {"LENGTH", "int", nullptr},
                                     {"ADVANCE", "int", nullptr},
                                     {"SAMPLING_RATE", "int", nullptr},
                                     {"WINDOW", "string", "HANN"},
                                     {"CHANNELS", "string", ""},
                                     {"RESAMPLE", "bool", "false"},
                                     {"NON_FINITE", "string", "ZERO"}}};

AudioFrames::AudioFrames(std::string nodeName, const FD::ParameterSet& params)
    : ToolboxNode(SPEC, std::move(nodeName), params) {
  inOrder = true;
  try {
    reader = openReader();
  } catch (const Audio::AudioError& error) {
    throw new FrozenNodeException(this, error.what(), SOURCE_FILE, __LINE__);
  }
}

std::unique_ptr<Audio::FrameReader> AudioFrames::openReader() const {
  const Audio::FrameLayout layout(intParameter("LENGTH"), intParameter("ADVANCE"));
  Audio::AudioReaderOptions options;
  options.channels = stringParameter("CHANNELS");
  options.samplingRate = Audio::checkedSamplingRate(intParameter("SAMPLING_RATE"));
  options.resample = boolParameter("RESAMPLE");
  options.nonFinite = Audio::nonFiniteNamed(stringParameter("NON_FINITE"));
  options.reportGap = layout.length();
  options.warn = [](const std::string& text) { std::cerr << "AudioFrames: " << text << std::endl; };
  return std::make_unique<Audio::FrameReader>(
      Audio::AudioReader(stringParameter("FILENAME"), options), layout,
      Audio::windowNamed(stringParameter("WINDOW")));
}

void AudioFrames::reset() {
  ToolboxNode::reset();
  if (reader->frame() < 0) return;
  try {
    reader = openReader();
  } catch (const Audio::AudioError& error) {
    throw new FrozenNodeException(this, error.what(), SOURCE_FILE, __LINE__);
  }
}

FD::ObjectRef AudioFrames::spectra(bool exists) const {
  auto frame = std::make_unique<SpectrumMatrix>(static_cast<std::size_t>(reader->channelCount()),
                                                static_cast<std::size_t>(reader->bins()));
  for (std::size_t i = 0; exists && i < frame->nrows(); ++i) {
    for (std::size_t k = 0; k < frame->ncols(); ++k) {
      (*frame)(i, k) = reader->spectra()[i * frame->ncols() + k];
    }
  }
  return FD::ObjectRef(frame.release());
}

void AudioFrames::calculate(int /*output_id*/, int count, FD::Buffer& /*out*/) {
  bool exists = false;
  try {
    exists = reader->next();
  } catch (const Audio::AudioError& error) {
    throw new FrozenNodeException(this, error.what(), SOURCE_FILE, __LINE__);
  }
  setOutput("OUTPUT", count, spectra(exists));
  setOutput("NOT_EOF", count, exists ? FD::TrueObject : FD::FalseObject);
  setOutput("SAMPLES", count,
            FD::ObjectRef(FD::Int::alloc(exists ? reader->completedSamples() : 0)));
  setOutput("LAST_FRAME", count, exists && reader->isLast() ? FD::TrueObject : FD::FalseObject);
}
