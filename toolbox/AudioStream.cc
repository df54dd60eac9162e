#include "AudioStream.h"

#include <utility>

#include "dsp/Window.h"

const NodeSpec AudioStream::SPEC = {
    .type = "AudioStream",
    .sourceFile = "AudioStream.cc",
    .text =
        "Reads multichannel sound from a pipe, a FIFO, standard input or a device, once and "
        "without "
        "end if need be, frame by frame, as spectra. Frame 0 brings the first ADVANCE samples; a "
        "frame comes as soon as the ADVANCE samples after it are there.",
    .inputs = {},
    .outputs = {{"OUTPUT", SPECTRA_TYPE,
                 "Spectra of the frame: a row per selected channel, LENGTH/2+1 columns"},
                {"NOT_EOF", "bool",
                 "Whether the stream has this frame; use it as the iterator's condition"},
                {"SAMPLES", "int", "As in AudioFrames; link it to SeparatedWriter"},
                {"LAST_FRAME", "bool", "As in AudioFrames; link it to SeparatedWriter"}},
    .parameters = {
        {"FILENAME", "string", "-",
         "The stream: - for standard input, or the name of a FIFO or device; with WAV, W64, AU, "
         "AIFF or FLAC, or raw samples"},
        {"RAW", "string", "",
         "Samples without header: encoding, channels and rate, such as S16_LE,8,16000; empty: the "
         "stream has a header"},
        {"LENGTH", "int", nullptr, "Samples per frame, as in AudioFrames"},
        {"ADVANCE", "int", nullptr, "Samples from one frame to the next, as in AudioFrames"},
        {"SAMPLING_RATE", "int", nullptr,
         "Sampling rate in Hz that the network works at; another one is refused unless RESAMPLE is "
         "true"},
        {"WINDOW", "string", "HANN", "Analysis window, as in AudioFrames"},
        {"CHANNELS", "string", "", "Channels to use, as in AudioFrames"},
        {"RESAMPLE", "bool", "false",
         "true: convert another sampling rate to SAMPLING_RATE, which takes another 0.1 s"},
        {"NON_FINITE", "string", "ZERO",
         "What becomes of samples that are no numbers, as in AudioFrames"}}};

namespace {

const int registered = declareNode<AudioStream>();

}  // namespace

AudioStream::AudioStream(std::string nodeName, const FD::ParameterSet& params)
    : AudioFrames(SPEC, std::move(nodeName), params, __LINE__) {
  options = checked([&] { return readerOptions(); });
  checked([&] { return Audio::windowNamed(stringParameter("WINDOW")); });
  const std::string raw = stringParameter("RAW");
  if (!raw.empty()) options.raw = checked([&] { return Audio::parseRawFormat(raw, "RAW"); });
}

void AudioStream::reset() {
  ToolboxNode::reset();
  reader.reset();
}

void AudioStream::calculate(int output_id, int count, FD::Buffer& out) {
  if (!reader) reader = checked([&] { return openReader(options); });
  AudioFrames::calculate(output_id, count, out);
}
