#include "audio/SeparatedFiles.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>

#include "audio/FileText.h"
#include "audio/OutputFile.h"
#include "dsp/DataError.h"

namespace Audio {

namespace fs = std::filesystem;

namespace {

const char* const TIMELINE = "timeline.json";

// From here on files of sources that pause are closed: a process may have about a thousand open.
constexpr std::size_t MANY_SOURCES = 16;

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

/// Whether a name is that of an unfinished source file or timeline of a run that was killed.
bool isLeftover(const std::string& name, const std::string& prefix) {
  if (OutputFile::isLeftover(name, TIMELINE)) return true;
  const std::string source = name.substr(0, name.find(".wav") + 4);
  return isSourceFile(source, prefix) && OutputFile::isLeftover(name, source);
}

fs::directory_iterator entriesOf(const std::string& directory) {
  std::error_code error;
  fs::directory_iterator entries(directory, error);
  if (!error) return entries;
  throw DataError(fmt::format("{}: cannot be listed: {}", directory, error.message()));
}

}  // namespace

SeparatedFiles::SeparatedFiles(const SeparatedFilesOptions& given,
                               FrameSynthesizer frameSynthesizer)
    : options(given), synthesizer(std::move(frameSynthesizer)) {
  if (options.directory.empty()) options.directory.assign(1, '.');
  if (options.prefix.find('/') != std::string::npos) {
    throw DataError(fmt::format("PREFIX is \"{}\", expected the begin of a file name without \"/\"",
                                options.prefix));
  }
  std::error_code error;
  fs::create_directories(options.directory, error);
  std::error_code ignored;
  if (!fs::is_directory(options.directory, ignored)) {
    throw DataError(fmt::format("{}: cannot be made or is no folder{}{}", options.directory,
                                error ? ": " : "", error ? error.message() : ""));
  }
  lock.emplace(options.directory);
  removeLeftovers();
  if (!options.overwrite) refuseEarlierFiles();
  earlierFiles = filesOfEarlierRun(options.directory);
}

std::optional<std::string> earlierFile(const std::string& directory, const std::string& prefix) {
  std::vector<std::string> found;
  for (const auto& entry : entriesOf(directory)) {
    const std::string name = entry.path().filename().string();
    if (name == TIMELINE || isSourceFile(name, prefix)) found.push_back(name);
  }
  if (found.empty()) return std::nullopt;
  return (fs::path(directory) / *std::min_element(found.begin(), found.end())).string();
}

void SeparatedFiles::refuseEarlierFiles() const {
  const std::optional<std::string> found = earlierFile(options.directory, options.prefix);
  if (!found) return;
  throw DataError(fmt::format("{}: exists already (set OVERWRITE to true to replace it)", *found));
}

void SeparatedFiles::removeLeftovers() const {
  for (const auto& entry : entriesOf(options.directory)) {
    std::error_code ignored;  // what cannot be removed disturbs nothing
    const bool isFile = entry.symlink_status(ignored).type() == fs::file_type::regular;
    if (isFile && isLeftover(entry.path().filename().string(), options.prefix)) {
      fs::remove(entry.path(), ignored);
    }
  }
}

std::vector<std::string> SeparatedFiles::filesOfEarlierRun(const std::string& directory) {
  std::vector<std::string> files;
  try {
    const nlohmann::json document =
        nlohmann::json::parse(fileText((fs::path(directory) / TIMELINE).string()));
    for (const nlohmann::json& source : document.at("sources")) {
      const fs::path name = source.at("file").get<std::string>();
      const fs::path path = fs::path(directory) / name;
      const bool isHere = name == name.filename() && name.extension() == ".wav";
      if (isHere && fs::symlink_status(path).type() == fs::file_type::regular) {
        files.push_back(path.string());
      }
    }
  } catch (const std::exception&) {
    return {};  // not a timeline of ours: it is none of our files either
  }
  return files;
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
void SeparatedFiles::addFrame(const Spectra& spectra, std::optional<int> completedSamples) {
  if (finished) throw DataError("the files of the separated sources are finished already");
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
  const int count = completedSamples.value_or(complete);
  if (count < 0 || count > complete) {
    throw DataError(fmt::format("frame {} finishes 0 to {} samples, found a count of {}", frame,
                                complete, count));
  }
  lengthIsKnown = completedSamples.has_value();
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
    if (isSilent && sources.size() > MANY_SOURCES) source.writer.suspend();
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
  // Whatever can fail is done before the first file gets its name.
  for (auto& [id, source] : sources) {
    source.writer.writeSilence(position - source.writer.samplesWritten());
    source.writer.sync();
    if (sources.size() > MANY_SOURCES) source.writer.suspend();
  }
  for (auto& [id, source] : sources) source.writer.finish();
  writeTimeline();
  removeFilesOfEarlierRun();
  lock.reset();
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
  OutputFile file((fs::path(options.directory) / TIMELINE).string(), options.overwrite);
  file.write(timeline() + "\n");
  file.finish();
}

void SeparatedFiles::removeFilesOfEarlierRun() {
  std::set<std::string> written;
  for (const auto& [id, source] : sources) written.insert(pathOf(id));
  for (const std::string& path : earlierFiles) {
    std::error_code ignored;  // it may be gone already
    if (written.count(path) != 0 || OutputFile::isOpenHere(path)) continue;
    if (fs::remove(path, ignored)) removedFiles.push_back(path);
  }
}

}  // namespace Audio
