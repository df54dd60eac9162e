#include "SeparatedWriter.h"

#include <fmt/format.h>

#include <exception>
#include <iostream>
#include <optional>
#include <set>
#include <utility>

#include "audio/SamplingRates.h"
#include "dsp/AudioError.h"

namespace {

const int registered =
    FD::Node::addFactory("SeparatedWriter",
                         new FD::NodeFactory<SeparatedWriter>("SeparatedWriter")) +
    FD::Node::addXPM("SeparatedWriter", nullptr);

const char* const SOURCE_FILE = "SeparatedWriter.cc";

}  // namespace

const NodeSpec SeparatedWriter::SPEC = {
    "SeparatedWriter",
    {{"INPUT", false}, {"SOURCES", true}, {"SAMPLES", true}, {"LAST_FRAME", true}},
    {"OUTPUT"},
    {{"DIRECTORY", "string", nullptr},
     {"LENGTH", "int", nullptr},
     {"ADVANCE", "int", nullptr},
     {"SAMPLING_RATE", "int", nullptr},
     {"WINDOW", "string", "HANN"},
     {"HALF_FRAME_SHIFT", "bool", "false"},
     {"FORMAT", "string", "PCM_16"},
     {"PREFIX", "string", "source_"},
     {"OVERWRITE", "bool", "false"}}};

SeparatedWriter::SeparatedWriter(std::string nodeName, const FD::ParameterSet& params)
    : ToolboxNode(SPEC, std::move(nodeName), params) {
  inOrder = true;
  try {
    files = openFiles();
  } catch (const Audio::AudioError& error) {
    throw new FrozenNodeException(this, error.what(), SOURCE_FILE, __LINE__);
  }
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
  } catch (const Audio::AudioError& error) {
    files.reset();
    throw new FrozenNodeException(this, error.what(), SOURCE_FILE, __LINE__);
  } catch (...) {
    // Whatever stops the run here, the files would end in the middle.
    files.reset();
    throw;
  }
}

void SeparatedWriter::write(const SpectrumMap& map, int count) {
  if (!files) {
    throw new FrozenNodeException(this, "The files were given up after an earlier error.",
                                  SOURCE_FILE, __LINE__);
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
    throw new FrozenNodeException(
        this,
        fmt::format("The spectrum of source {} has {} bins, expected LENGTH/2+1 = {}.", id,
                    values.size(), bins),
        SOURCE_FILE, __LINE__);
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
  } catch (const Audio::AudioError& error) {
    files.reset();
    throw new FrozenNodeException(this, error.what(), SOURCE_FILE, __LINE__);
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
  try {
    files = openFiles();
  } catch (const Audio::AudioError& error) {
    throw new FrozenNodeException(this, error.what(), SOURCE_FILE, __LINE__);
  }
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
