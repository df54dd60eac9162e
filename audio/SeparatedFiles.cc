#include "audio/SeparatedFiles.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

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

SeparatedFiles::SeparatedFiles(const SeparatedFilesOptions& given, const FrameLayout& frameLayout)
    : options(given), layout(frameLayout) {
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
  if (!options.overwrite) {
    refuseEarlierFiles(options.directory, options.prefix, options.overwriteWords);
  }
  earlierFiles = filesOfEarlierRun(options.directory);
}

void refuseEarlierFiles(const std::string& directory, const std::string& prefix,
                        const std::string& overwriteWords) {
  std::vector<std::string> found;
  for (const auto& entry : entriesOf(directory)) {
    const std::string name = entry.path().filename().string();
    if (name == TIMELINE || isSourceFile(name, prefix)) found.push_back(name);
  }
  if (found.empty()) return;
  throw DataError(
      fmt::format("{}: exists already, expected no files of an earlier run ({})",
                  (fs::path(directory) / *std::min_element(found.begin(), found.end())).string(),
                  overwriteWords));
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
  Source source{WavWriter(pathOf(id), format, options.overwrite), {}};
  return sources.emplace(id, std::move(source)).first->second;
}

void SeparatedFiles::noteActive(Source& source) const {
  if (source.activeFrames.empty() || source.activeFrames.back().second != frame - 1) {
    source.activeFrames.emplace_back(frame, frame);
  } else {
    source.activeFrames.back().second = frame;
  }
}

void SeparatedFiles::addFrame(const std::vector<int>& ids) {
  if (finished) throw DataError("the files of the separated sources are finished already");
  ++frame;
  for (const int id : ids) {
    noteActive(sourceOf(id));
    sounding.insert(id);
  }
}

void SeparatedFiles::write(const Signals& signals, std::size_t count) {
  if (finished) throw DataError("the files of the separated sources are finished already");
  if (count == 0) return;
  for (const auto& [id, samples] : signals) {
    WavWriter& writer = sources.at(id).writer;
    writer.writeSilence(position - writer.samplesWritten());
    writer.write(samples, count);
  }
  position += static_cast<std::int64_t>(count);
  // The file of a source that falls silent waits, closed, for more.
  std::erase_if(sounding, [&](int id) {
    const bool isSilent = !signals.contains(id);
    if (isSilent && sources.size() > MANY_SOURCES) sources.at(id).writer.suspend();
    return isSilent;
  });
}

void SeparatedFiles::finish() {
  if (finished) return;
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

std::vector<SeparatedSound> SeparatedFiles::report() const {
  const double shift = (layout.length() - layout.advance()) / 2.0;
  const auto seconds = [&](std::int64_t frameNumber) {
    const double sample = static_cast<double>(layout.start(frameNumber)) + shift;
    return std::clamp(sample, 0.0, static_cast<double>(position)) / options.samplingRate;
  };
  std::vector<SeparatedSound> files;
  for (const auto& [id, source] : sources) {
    SeparatedSound& file = files.emplace_back();
    file.id = id;
    file.path = pathOf(id);
    for (const auto& [first, last] : source.activeFrames) {
      const double begin = seconds(first);
      const double end = seconds(last + 1);
      if (begin < end) file.active.emplace_back(begin, end);
    }
    file.clipped = source.writer.clippedSamples();
    file.nonFinite = source.writer.nonFiniteSamples();
    file.peak = source.writer.peak();
  }
  return files;
}

std::vector<std::string> SeparatedFiles::remarks(const std::string& floatWords) const {
  std::vector<std::string> warnings = SeparatedOutput::remarks(floatWords);
  if (!removedFiles.empty()) {
    warnings.push_back(
        fmt::format("removed from an earlier run: {}", fmt::join(removedFiles, ", ")));
  }
  return warnings;
}

std::string SeparatedFiles::timeline() const {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const SeparatedSound& file : report()) {
    list.push_back({{"id", file.id},
                    {"file", fs::path(file.path).filename().string()},
                    {"active", file.active},
                    {"clipped_samples", file.clipped},
                    {"non_finite_samples", file.nonFinite},
                    {"peak", file.peak}});
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
