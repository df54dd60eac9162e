#include "audio/SeparatedFiles.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <utility>

#include "audio/TemporaryFile.h"
#include "dsp/AudioError.h"

namespace Audio {

namespace fs = std::filesystem;

namespace {

const char* const TIMELINE = "timeline.json";

bool isNumber(const std::string& text) {
  const std::size_t sign = !text.empty() && text[0] == '-' ? 1 : 0;
  return text.size() > sign && text.find_first_not_of("0123456789", sign) == std::string::npos;
}

/// Whether a file is called <prefix><number>.wav.
bool isSourceFile(const std::string& name, const std::string& prefix) {
  const std::string suffix = ".wav";
  if (name.size() <= prefix.size() + suffix.size()) return false;
  if (!name.starts_with(prefix) || !name.ends_with(suffix)) return false;
  return isNumber(name.substr(prefix.size(), name.size() - prefix.size() - suffix.size()));
}

}  // namespace

SeparatedFiles::SeparatedFiles(const SeparatedFilesOptions& given,
                               FrameSynthesizer frameSynthesizer)
    : options(given), synthesizer(std::move(frameSynthesizer)) {
  if (options.directory.empty()) options.directory.assign(1, '.');
  if (options.prefix.find('/') != std::string::npos) {
    throw AudioError(fmt::format(
        "PREFIX is \"{}\", expected the begin of a file name without \"/\"", options.prefix));
  }
  std::error_code error;
  fs::create_directories(options.directory, error);
  std::error_code ignored;
  if (!fs::is_directory(options.directory, ignored)) {
    throw AudioError(fmt::format("{}: cannot be made or is no folder{}{}", options.directory,
                                 error ? ": " : "", error ? error.message() : ""));
  }
  if (!options.overwrite) refuseEarlierFiles();
}

void SeparatedFiles::refuseEarlierFiles() const {
  std::vector<std::string> found;
  std::error_code error;
  const fs::directory_iterator entries(options.directory, error);
  if (error) {
    throw AudioError(fmt::format("{}: cannot be listed: {}", options.directory, error.message()));
  }
  for (const auto& entry : entries) {
    const std::string name = entry.path().filename().string();
    if (name == TIMELINE || isSourceFile(name, options.prefix)) found.push_back(name);
  }
  if (found.empty()) return;
  throw AudioError(fmt::format(
      "{}: exists already (set OVERWRITE to true to replace it)",
      (fs::path(options.directory) / *std::min_element(found.begin(), found.end())).string()));
}

std::string SeparatedFiles::pathOf(int id) const {
  return (fs::path(options.directory) / fmt::format("{}{}.wav", options.prefix, id)).string();
}

SeparatedFiles::Source& SeparatedFiles::sourceOf(int id) {
  const auto known = sources.find(id);
  if (known != sources.end()) return known->second;
  const WavFormat format{options.samplingRate, 1, options.format};
  Source source{
      OverlapAdder(synthesizer.frames()), WavWriter(pathOf(id), format, options.overwrite), {}};
  return sources.emplace(id, std::move(source)).first->second;
}

void SeparatedFiles::noteActive(Source& source) const {
  if (source.activeFrames.empty() || source.activeFrames.back().second != frame - 1) {
    source.activeFrames.emplace_back(frame, frame);
  } else {
    source.activeFrames.back().second = frame;
  }
}

// The frame's first `advance` samples are complete; those before sample 0 are no output.
void SeparatedFiles::addFrame(const Spectra& spectra, std::optional<int> finishedSamples) {
  if (finished) throw AudioError("the files of the separated sources are finished already");
  ++frame;
  for (const auto& [id, spectrum] : spectra) {
    Source& source = sourceOf(id);
    noteActive(source);
    source.writer.writeSilence(position - source.writer.samplesWritten());
    sounding.insert(id);
  }
  for (const int id : sounding) {
    Source& source = sources.at(id);
    const auto found = spectra.find(id);
    source.adder.add(found == spectra.end() ? nullptr
                                            : synthesizer.synthesize(found->second).data());
  }

  const int advance = synthesizer.frames().advance();
  const auto offset = std::clamp<std::int64_t>(-synthesizer.frames().start(frame), 0, advance);
  const auto complete = static_cast<int>(advance - offset);
  const int count = finishedSamples.value_or(complete);
  if (count < 0 || count > complete) {
    throw AudioError(fmt::format("frame {} finishes 0 to {} samples, found a count of {}", frame,
                                 complete, count));
  }
  lengthIsKnown = finishedSamples.has_value();
  writeFinished(static_cast<std::size_t>(offset), static_cast<std::size_t>(count));
  suspendSilent();
}

void SeparatedFiles::writeFinished(std::size_t offset, std::size_t count) {
  for (const int id : sounding) {
    Source& source = sources.at(id);
    source.writer.write(source.adder.sum().data() + offset, count);
  }
  position += static_cast<std::int64_t>(count);
}

// Once no sample of a source's last frame is left to write, its file waits, closed, for more.
void SeparatedFiles::suspendSilent() {
  const FrameLayout& layout = synthesizer.frames();
  const std::int64_t reach = (layout.length() + layout.advance() - 1) / layout.advance();
  std::erase_if(sounding, [&](int id) {
    Source& source = sources.at(id);
    const bool isSilent = frame - source.activeFrames.back().second >= reach;
    if (isSilent) source.writer.suspend();
    return isSilent;
  });
}

void SeparatedFiles::finish() {
  if (finished) return;
  if (frame >= 0 && !lengthIsKnown) {
    const FrameLayout& layout = synthesizer.frames();
    const std::int64_t end = layout.start(frame) + layout.length();
    writeFinished(static_cast<std::size_t>(position - layout.start(frame)),
                  static_cast<std::size_t>(end - position));
  }
  for (auto& [id, source] : sources) {
    source.writer.writeSilence(position - source.writer.samplesWritten());
    source.writer.suspend();
  }
  for (auto& [id, source] : sources) source.writer.finish();
  writeTimeline();
  finished = true;
}

std::vector<SeparatedFile> SeparatedFiles::report() const {
  std::vector<SeparatedFile> files;
  for (const auto& [id, source] : sources) {
    files.push_back({id, pathOf(id), source.writer.clippedSamples(),
                     source.writer.nonFiniteSamples(), source.writer.peak()});
  }
  return files;
}

std::string SeparatedFiles::timeline() const {
  const FrameLayout& layout = synthesizer.frames();
  const double shift = (layout.length() - layout.advance()) / 2.0;
  const auto seconds = [&](std::int64_t frameNumber) {
    const double sample = static_cast<double>(layout.start(frameNumber)) + shift;
    return std::clamp(sample, 0.0, static_cast<double>(position)) / options.samplingRate;
  };

  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const auto& [id, source] : sources) {
    nlohmann::ordered_json active = nlohmann::ordered_json::array();
    for (const auto& [first, last] : source.activeFrames) {
      const double begin = seconds(first);
      const double end = seconds(last + 1);
      if (begin < end) active.push_back({begin, end});
    }
    list.push_back({{"id", id},
                    {"file", fs::path(pathOf(id)).filename().string()},
                    {"active", active},
                    {"clipped_samples", source.writer.clippedSamples()},
                    {"non_finite_samples", source.writer.nonFiniteSamples()},
                    {"peak", source.writer.peak()}});
  }
  const nlohmann::ordered_json document = {
      {"sampling_rate", options.samplingRate}, {"samples", position}, {"sources", list}};
  return document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

void SeparatedFiles::writeTimeline() const {
  const fs::path path = fs::path(options.directory) / TIMELINE;
  TemporaryFile part(path.string() + ".part", path.string());
  std::ofstream out(part.path(), std::ios::binary);
  out << timeline() << '\n';
  out.close();
  std::error_code error(out ? 0 : errno, std::generic_category());
  if (!error) error = part.rename();
  if (!out || error) {
    throw AudioError(fmt::format("{}: cannot be written: {}", path.string(), error.message()));
  }
}

}  // namespace Audio
