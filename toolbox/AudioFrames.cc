#include "AudioFrames.h"

#include <iostream>
#include <utility>

#include "audio/SamplingRates.h"

const NodeSpec AudioFrames::SPEC = {
    .type = "AudioFrames",
    .sourceFile = "AudioFrames.cc",
    .text =
        "Reads a multichannel audio file, frame by frame, as spectra. The file is streamed, so its "
        "length does not matter. Frame 0 brings the first ADVANCE samples; samples before and "
        "after the recording count as zeros.",
    .inputs = {},
    .outputs = {{"OUTPUT", SPECTRA_TYPE,
                 "Spectra of the frame: a row per selected channel, LENGTH/2+1 columns"},
                {"NOT_EOF", "bool",
                 "Whether the recording has this frame; use it as the iterator's condition"},
                {"SAMPLES", "int",
                 "How many samples of the recording have this frame as their last one; link it to "
                 "SeparatedWriter, so that its files are as long as the recording"},
                {"LAST_FRAME", "bool",
                 "Whether this is the recording's last frame; link it to SeparatedWriter, so that "
                 "it knows when its files are complete"}},
    .parameters = {
        {"FILENAME", "string", nullptr,
         "The recording: any format libsndfile reads (WAV, FLAC, AIFF, ...), with any number of "
         "channels"},
        {"LENGTH", "int", nullptr,
         "Samples per frame; the same number in every node of the network and as the transfer "
         "functions were made for, such as 512"},
        {"ADVANCE", "int", nullptr,
         "Samples from one frame to the next; at most LENGTH/2 if sound is to be made of the "
         "frames again, such as 128"},
        {"SAMPLING_RATE", "int", nullptr,
         "Sampling rate in Hz that the network works at; a file of another rate is refused unless "
         "RESAMPLE is true"},
        {"WINDOW", "string", "HANN",
         "Analysis window: HANN, HAMMING, SINE or RECTANGULAR; the same as in SeparatedWriter"},
        {"CHANNELS", "string", "",
         "Channels to use, counted from 1, in the order of the transfer functions' microphones, "
         "such as 1-4,7; empty: all"},
        {"RESAMPLE", "bool", "false",
         "true: convert a file of another sampling rate to SAMPLING_RATE"},
        {"NON_FINITE", "string", "ZERO",
         "What becomes of samples that are NaN, infinite or beyond 1e15: ZERO replaces them by 0, "
         "KEEP passes them on; each run of frames that has any is reported once on standard "
         "error"}}};

namespace {

const int registered = declareNode<AudioFrames>();

}  // namespace

AudioFrames::AudioFrames(const NodeSpec& nodeSpec, std::string nodeName,
                         const FD::ParameterSet& params, int sourceLine)
    : ToolboxNode(nodeSpec, std::move(nodeName), params, sourceLine) {
  inOrder = true;
}

AudioFrames::AudioFrames(std::string nodeName, const FD::ParameterSet& params)
    : AudioFrames(SPEC, std::move(nodeName), params, __LINE__) {
  reader = checked([&] { return openReader(readerOptions()); });
}

Audio::FrameLayout AudioFrames::frameLayout() const {
  return {intParameter("LENGTH"), intParameter("ADVANCE")};
}

Audio::AudioReaderOptions AudioFrames::readerOptions() const {
  Audio::AudioReaderOptions options;
  options.channels = stringParameter("CHANNELS");
  options.samplingRate = Audio::checkedSamplingRate(intParameter("SAMPLING_RATE"));
  options.resample = boolParameter("RESAMPLE");
  options.nonFinite = Audio::nonFiniteNamed(stringParameter("NON_FINITE"));
  options.reportGap = frameLayout().length();
  options.warn = [type = spec.type](const std::string& text) {
    std::cerr << type << ": " << text << std::endl;
  };
  return options;
}

std::unique_ptr<Audio::FrameReader> AudioFrames::openReader(
    const Audio::AudioReaderOptions& options) const {
  const Audio::WindowType window = Audio::windowNamed(stringParameter("WINDOW"));
  return std::make_unique<Audio::FrameReader>(
      Audio::AudioReader(stringParameter("FILENAME"), options), frameLayout(), window);
}

void AudioFrames::reset() {
  ToolboxNode::reset();
  if (reader->frame() < 0) return;
  reader = checked([&] { return openReader(readerOptions()); });
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
  const bool exists = checked([&] { return reader->next(); });
  setOutput("OUTPUT", count, spectra(exists));
  setOutput("NOT_EOF", count, exists ? FD::TrueObject : FD::FalseObject);
  setOutput("SAMPLES", count,
            FD::ObjectRef(FD::Int::alloc(exists ? reader->completedSamples() : 0)));
  setOutput("LAST_FRAME", count, exists && reader->isLast() ? FD::TrueObject : FD::FalseObject);
}
