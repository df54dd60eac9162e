#include "SeparatedWriter.h"

#include <fmt/format.h>

#include <exception>
#include <iostream>
#include <optional>
#include <set>
#include <utility>

#include "audio/SamplingRates.h"
#include "dsp/DataError.h"

const NodeSpec SeparatedWriter::SPEC = {
    .type = "SeparatedWriter",
    .sourceFile = "SeparatedWriter.cc",
    .text =
        "Writes one WAV file per separated source and timeline.json, which says when each was "
        "active. Every file begins with the recording's first sample; a source is silent where it "
        "is not listed. Clipped samples are counted and reported.",
    .inputs = {{"INPUT", SPECTRUM_MAP_TYPE, "Separated spectra by source id"},
               {"SOURCES", SOURCES_TYPE,
                "Optional: the active targets. Other ids get no file, and a target is silent in "
                "frames that do not list it. Needed with MSNR, which also gives out noise sources",
                NodeSpec::OPTIONAL},
               {"SAMPLES", "int",
                "Optional: SAMPLES of AudioFrames, which makes every file exactly as long as the "
                "recording",
                NodeSpec::OPTIONAL},
               {"LAST_FRAME", "bool",
                "Optional: LAST_FRAME of AudioFrames. With it the files get their names only when "
                "the recording was worked through; without it, when the network ends",
                NodeSpec::OPTIONAL}},
    .outputs = {{"OUTPUT", SPECTRUM_MAP_TYPE, "The map as it came in"}},
    .parameters = {
        {"DIRECTORY", "string", nullptr, "Folder for the files; it is made when it does not exist"},
        {"LENGTH", "int", nullptr, "Samples per frame, as in AudioFrames"},
        {"ADVANCE", "int", nullptr,
         "Samples from one frame to the next, as in AudioFrames; at most LENGTH/2 with most "
         "windows"},
        {"SAMPLING_RATE", "int", nullptr, "Sampling rate in Hz, as in AudioFrames"},
        {"WINDOW", "string", "HANN",
         "Window, as in AudioFrames: HANN, HAMMING, SINE or RECTANGULAR"},
        {"HALF_FRAME_SHIFT", "bool", "false",
         "true: undo the shift by half a frame that ML's filters have; set it when ML's output is "
         "written as it is, and leave it false for the other nodes and behind BackProjection"},
        {"FORMAT", "string", "PCM_16",
         "Samples of the WAV files: PCM_16, PCM_24 or FLOAT; FLOAT never clips"},
        {"PREFIX", "string", "source_",
         "What file names begin with: the source with id 3 goes to source_3.wav"},
        {"OVERWRITE", "bool", "false",
         "true: replace files of an earlier run in DIRECTORY; false: refuse to start when there "
         "are any"}}};

namespace {

const int registered = declareNode<SeparatedWriter>();

}  // namespace

SeparatedWriter::SeparatedWriter(std::string nodeName, const FD::ParameterSet& params)
    : ToolboxNode(SPEC, std::move(nodeName), params, __LINE__) {
  inOrder = true;
  files = checked([&] { return openFiles(); });
}

std::unique_ptr<SeparatedFrames> SeparatedWriter::openFiles() const {
  const Audio::FrameLayout layout(intParameter("LENGTH"), intParameter("ADVANCE"));
  Audio::FrameSynthesizer synthesizer(layout, Audio::windowNamed(stringParameter("WINDOW")),
                                      boolParameter("HALF_FRAME_SHIFT"));
  Audio::SeparatedFilesOptions options;
  options.directory = stringParameter("DIRECTORY");
  options.prefix = stringParameter("PREFIX");
  options.samplingRate = Audio::checkedSamplingRate(intParameter("SAMPLING_RATE"));
  options.format = Audio::sampleFormatNamed(stringParameter("FORMAT"));
  options.overwrite = boolParameter("OVERWRITE");
  return std::make_unique<SeparatedFrames>(options, std::move(synthesizer));
}

// ---- frames

void SeparatedWriter::calculate(int /*output_id*/, int count, FD::Buffer& out) {
  try {
    const FD::ObjectRef map = pull("INPUT", count);
    write(FD::object_cast<SpectrumMap>(map), count);
    out[count] = map;
  } catch (const DataError& error) {
    files.reset();
    fail(error.what());
  } catch (...) {
    // Whatever stops the run here, the files would end in the middle.
    files.reset();
    throw;
  }
}

void SeparatedWriter::write(const SpectrumMap& map, int count) {
  if (!files) {
    fail("The files were given up after an earlier error.");
  }
  std::optional<std::set<int>> targets;
  if (isConnected("SOURCES")) targets = pullIds("SOURCES", count);
  SeparatedFrames::Spectra spectra;
  for (const auto& [id, spectrum] : map) {
    if (!targets || targets->count(id) != 0) spectra[id] = checkedSpectrum(id, spectrum);
  }
  std::optional<int> samples;
  if (isConnected("SAMPLES")) samples = FD::dereference_cast<int>(pull("SAMPLES", count));
  const bool isLast =
      isConnected("LAST_FRAME") && FD::dereference_cast<bool>(pull("LAST_FRAME", count));

  if (files->isFinished()) return;
  used = true;
  files->addFrame(spectra, samples);
  if (isLast) finish();
}

const std::complex<float>* SeparatedWriter::checkedSpectrum(int id, const FD::ObjectRef& spectrum) {
  const auto& values = FD::object_cast<SpectrumVector>(spectrum);
  const int length = intParameter("LENGTH");
  const auto bins = static_cast<std::size_t>(Audio::FrameLayout(length, length).bins());
  if (values.size() != bins) {
    fail(fmt::format("The spectrum of source {} has {} bins, expected LENGTH/2+1 = {}.", id,
                     values.size(), bins));
  }
  return values.data();
}

// ---- the end of a run

void SeparatedWriter::finish() {
  for (const std::string& remark : files->finish()) {
    std::cerr << "SeparatedWriter: " + remark + "\n" << std::flush;
  }
}

void SeparatedWriter::stop() {
  if (!files || files->isFinished()) return;
  try {
    finish();
  } catch (const DataError& error) {
    files.reset();
    fail(error.what());
  }
}

void SeparatedWriter::endRun() {
  if (used && !isConnected("LAST_FRAME")) SeparatedWriter::stop();
  files.reset();
  used = false;
}

void SeparatedWriter::cleanupNotify() {
  endRun();
  ToolboxNode::cleanupNotify();
}

void SeparatedWriter::reset() {
  ToolboxNode::reset();
  if (files && !used) return;
  endRun();
  files = checked([&] { return openFiles(); });
}

SeparatedWriter::~SeparatedWriter() {
  try {
    endRun();
  } catch (FD::BaseException* e) {  // nothing may leave a destructor
    e->print(std::cerr);
    delete e;
  } catch (const std::exception& error) {
    std::cerr << "SeparatedWriter: " << error.what() << std::endl;
  }
}
