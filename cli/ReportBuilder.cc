#include "cli/ReportBuilder.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <optional>
#include <set>
#include <utility>

#include "audio/AudioReader.h"
#include "audio/Channels.h"
#include "audio/EncodedSound.h"
#include "audio/OutputFile.h"
#include "cli/OutputCheck.h"
#include "cli/PatternModel.h"
#include "cli/PrintableOutput.h"
#include "dsp/DataError.h"
#include "pictures/ScenePicture.h"
#include "pictures/Spectrogram.h"
#include "pictures/SpectrogramPicture.h"
#include "report/ReportPage.h"
#include "report/RunRecord.h"
#include "scoring/ScoreMetrics.h"
#include "separation/Methods.h"

namespace {

namespace fs = std::filesystem;

// So many samples of all sounds together are packed without loss, about 20 MB; more of them with
// loss.
constexpr double MAX_FLAC_SAMPLES = 16e6;
constexpr double RANGE = 70.0;            // dB of a spectrogram's colours
constexpr std::size_t MAX_MOMENTS = 12;   // at which patterns are drawn
constexpr std::size_t MAX_PATTERNS = 64;  // of a run
constexpr int PICTURE_WIDTH = 420;        // pixels: a telephone shows their texts readably
constexpr int MAX_TAPS = 512;
constexpr int MAX_SYSTEM = 4096;  // taps of all references

struct Run {
  std::string folder;
  std::optional<RunRecord> record;
  std::vector<RunSource> sources;
};

/// One of the page's sounds and where its samples come from.
struct SoundFile {
  std::string path;
  std::string channel = {};  ///< of a file of several, from 1
  ReportTrack track;
};

/// The channel of a file with the samples that the run worked on: not finite ones as 0, of its
/// rate.
Signal samplesOf(const SoundFile& file, int samplingRate) {
  Audio::AudioReaderOptions options;
  options.samplingRate = samplingRate;
  options.resample = true;
  options.warn = [](const std::string&) {};  // the run gave them
  options.channels = file.channel.empty() ? "1" : file.channel;
  options.channelsOfSeveral = true;
  Audio::AudioReader reader(file.path, options);
  return restOf(reader);
}

std::string placeText(const Audio::SceneSource& source) {
  const BF::Direction d = BF::directionOf(source.track.front().position);
  const std::string text = fmt::format("azimuth {:.0f}°, elevation {:.0f}°, {:.2g} m",
                                       d.azimuth + 0.0, d.elevation + 0.0, d.distance);
  return source.track.size() > 1 ? "moves, from " + text : text;
}

std::string decibels(double value) {
  return std::isfinite(value) ? fmt::format("{:.1f}", value) : fmt::format("{}", value);
}

/// Gathers what the page shows.
class Builder {
 public:
  explicit Builder(const ReportRequest& reportRequest) : request(reportRequest) {
    for (const std::string& folder : request.folders) {
      runs.push_back({folder, RunRecord::read(folder), sourcesOfRun(folder)});
      if (runs.back().record) continue;
      warn(fmt::format("{}: has no {}: the page lacks scene, pattern and method of this run",
                       folder, RunRecord::NAME));
    }
    rate = runs.front().record
               ? runs.front().record->samplingRate
               : Audio::AudioReader(runs.front().sources.front().path).samplingRate();
    page.samplingRate = rate;
    findMixture();
    findReferences();
  }

  ReportPage build() {
    listSounds();
    fillSounds();
    fillScene();
    for (const Run& run : runs) page.runs.push_back(describedRun(run));
    const std::string name = mixture.empty() ? request.folders.front() : mixture;
    page.title =
        request.title.empty() ? fs::path(name).filename().string() + ", separated" : request.title;
    page.subtitle = fmt::format("{}: {:.2f} s, {} Hz", name, page.duration, rate);
    return std::move(page);
  }

 private:
  const RunRecord* firstRecord() const {
    for (const Run& run : runs) {
      if (run.record) return &*run.record;
    }
    return nullptr;
  }

  void findMixture() {
    mixture = request.mixture;
    if (!mixture.empty()) return;
    for (const Run& run : runs) {
      if (!run.record || run.record->recording.empty()) continue;
      if (mixture.empty()) mixture = run.record->recording;
      if (run.record->recording == mixture) continue;
      throw DataError(fmt::format("{}: separates {}, expected {} as {} does", run.folder,
                                  run.record->recording, mixture, runs.front().folder));
    }
    std::error_code ignored;
    if (!mixture.empty() && fs::exists(mixture, ignored)) return;
    warn(mixture.empty() ? "the page lacks the mixture, as no run names it (--mixture)"
                         : fmt::format("{}: is not there any more: the page lacks the mixture "
                                       "(--mixture)",
                                       mixture));
    mixture.clear();
  }

  /// What `mix` writes beside a mixture: NAME-source<ID>.wav.
  void findReferences() {
    const std::vector<RunSource>& sources = runs.front().sources;
    references = request.references;
    if (!references.empty() && references.size() != sources.size()) {
      throw DataError(fmt::format("--reference: {} given, expected {}, one for each source of {}",
                                  references.size(), sources.size(), runs.front().folder));
    }
    if (!references.empty() || mixture.empty()) return;
    for (const RunSource& source : sources) {
      fs::path path(mixture);
      path.replace_filename(fmt::format("{}-source{}.wav", path.stem().string(), source.id));
      std::error_code ignored;
      if (!fs::exists(path, ignored)) {
        references.clear();
        return;
      }
      references.push_back(path.string());
    }
  }

  /// The recording's channel that the sources sound as.
  std::string referenceChannel() const {
    const RunRecord* record = firstRecord();
    if (!record || mixture.empty()) return "1";
    const int channels = Audio::channelsOf(mixture);
    const std::vector<int> selected = Audio::selectedChannels(record->channels, channels);
    const auto index = static_cast<std::size_t>(std::max(0, record->reference - 1));
    return std::to_string(index < selected.size() ? selected[index] + 1 : 1);
  }

  std::string placeOf(int id) const {
    const RunRecord* record = firstRecord();
    if (!record) return "";
    for (const Audio::SceneSource& source : record->scene.sources()) {
      if (source.id == id) return placeText(source);
    }
    return "";
  }

  static std::string nameOf(const Run& run) {
    if (!run.record) return run.folder;
    std::string name = run.record->method;
    if (run.record->refinePasses > 0) name += fmt::format("+{}", run.record->refinePasses);
    return name;
  }

  /// Method names where they differ, else folders.
  std::string shownName(const Run& run) const {
    std::set<std::string> names;
    for (const Run& one : runs) names.insert(nameOf(one));
    return names.size() == runs.size() ? nameOf(run) : run.folder;
  }

  void listSounds() {
    const std::string channel = referenceChannel();
    const auto add = [&](ReportTrack::Kind kind, const std::string& path, const std::string& name,
                         const std::string& place, const RunSource* source) {
      SoundFile file{path, channel, {}};
      file.track.kind = kind;
      file.track.name = name;
      file.track.place = place;
      if (source) file.track.active = source->active;
      sounds.push_back(std::move(file));
    };
    if (!mixture.empty()) {
      const bool several = Audio::channelsOf(mixture) > 1;
      add(ReportTrack::Kind::Mixture, mixture, "mixture", several ? "microphone " + channel : "",
          nullptr);
    }
    for (const Run& run : runs) {
      for (const RunSource& source : run.sources) {
        std::string name = fmt::format("source {}", source.id);
        if (runs.size() > 1) name += ", " + shownName(run);
        add(ReportTrack::Kind::Source, source.path, name, placeOf(source.id), &source);
      }
    }
    for (std::size_t i = 0; i < references.size(); ++i) {
      const RunSource& source = runs.front().sources[i];
      add(ReportTrack::Kind::Reference, references[i], fmt::format("reference {}", source.id),
          fmt::format("source {} alone, as microphone {} hears it", source.id, channel), &source);
    }
  }

  /// Sounds and spectrograms, the former all lowered alike where one exceeds full scale.
  void fillSounds() {
    double samples = 0.0;
    float peak = 0.0F;
    for (const SoundFile& file : sounds) {
      const Signal signal = samplesOf(file, rate);
      for (const float x : signal.samples) peak = std::max(peak, std::abs(x));
      samples += static_cast<double>(signal.samples.size());
      page.duration = std::max(page.duration, static_cast<double>(signal.samples.size()) / rate);
    }
    const bool isFlac =
        request.sound == "flac" || (request.sound == "auto" && samples <= MAX_FLAC_SAMPLES);
    const float factor = peak > 0.99F ? 0.99F / peak : 1.0F;
    page.peak = std::max(1e-6F, factor * peak);
    page.soundNote = isFlac ? "Sound without loss (FLAC, 16 bits)." : "Sound as Opus, with loss.";
    if (factor < 1.0F) {
      page.soundNote += fmt::format(" All sounds are lowered by {:.1f} dB so that none clips.",
                                    -20.0 * std::log10(factor));
    }
    std::vector<Spectrogram> spectrograms;
    const int length = rate > 24000 ? 1024 : 512;
    for (SoundFile& file : sounds) {
      Signal signal = samplesOf(file, rate);
      signal.samples.resize(static_cast<std::size_t>(std::lround(page.duration * rate)));
      for (float& x : signal.samples) x *= factor;
      file.track.sound =
          encodedSound(signal, isFlac ? SoundCoding::Flac : SoundCoding::Opus, file.path);
      spectrograms.push_back(spectrogramOf(file.track.name, signal, {length, length / 2}));
    }
    const double top = loudestLevel(spectrograms);
    page.levelNote = fmt::format(
        "The spectrograms show levels from {:.0f} dB (like the ground) to {:.0f} dB (strong), 0 dB "
        "being a sine of full scale.",
        top - RANGE, top);
    for (std::size_t i = 0; i < sounds.size(); ++i) {
      const Spectrogram& levels = spectrograms[i];
      sounds[i].track.spectrogram = levelRaster(levels, top - RANGE, top).png();
      sounds[i].track.spectrogramBegin = levels.begin;
      sounds[i].track.spectrogramLength =
          levels.columnSeconds * static_cast<double>(levels.columns());
      page.tracks.push_back(std::move(sounds[i].track));
    }
  }

  void fillScene() {
    const RunRecord* record = firstRecord();
    if (!record) return;
    page.scene =
        scenePicture(record->scene, "The scene from above", page.duration, PICTURE_WIDTH).svg();
  }

  ReportRun describedRun(const Run& run) {
    ReportRun result;
    result.name = shownName(run);
    result.facts.emplace_back("Folder", run.folder);
    try {
      addScores(run, result);
    } catch (const DataError& error) {
      result.warnings.push_back(fmt::format("no scores: {}", error.what()));
    }
    if (!run.record) return result;
    addFacts(*run.record, result);
    try {
      addPatterns(*run.record, result);
    } catch (const DataError& error) {
      result.warnings.push_back(fmt::format("no pattern: {}", error.what()));
    }
    for (const std::string& text : result.warnings) warn(text);
    result.warnings.insert(result.warnings.begin(), run.record->warnings.begin(),
                           run.record->warnings.end());
    return result;
  }

  static void addFacts(const RunRecord& record, ReportRun& run) {
    const auto add = [&](const char* name, const std::string& value) {
      if (!value.empty()) run.facts.emplace_back(name, value);
    };
    std::string parameters;
    for (const auto& [name, value] : record.parameters) {
      parameters += fmt::format("{}{} = {}", parameters.empty() ? "" : ", ", name, value);
    }
    add("Method", fmt::format("{}: {}", record.method, methodNamed(record.method).choose));
    add("Parameters", parameters);
    if (record.refinePasses > 0) add("Refinement", fmt::format("{} passes", record.refinePasses));
    add("Frames", fmt::format("{} samples every {}, window {}", record.length, record.advance,
                              record.window));
    add("Microphones",
        fmt::format("{}, the sources sound as number {}", record.microphones, record.reference));
    add("Database", record.database);
    add("Impulse responses", record.responses);
    if (record.passes == 1) {
      add("Latency when live",
          fmt::format("{} samples ({:.1f} ms)", record.latencySamples, 1000.0 * record.latency()));
    } else {
      add("Passes over the recording", std::to_string(record.passes));
    }
    add("Real-time factor",
        fmt::format("{:.3f} ({:.2f} s of sound in {:.2f} s)",
                    record.duration > 0.0 ? record.elapsed / record.duration : 0.0, record.duration,
                    record.elapsed));
    add("Made by", "zelk-sss " + record.version);
  }

  /// Patterns at the moments at which sources come, go or move on.
  void addPatterns(const RunRecord& record, ReportRun& run) const {
    const std::string& database = request.database.empty() ? record.database : request.database;
    if (database.empty() || !methodNamed(record.method).needsDatabase()) return;
    PatternRequest wanted;
    wanted.database = database;
    wanted.scene = "scene";
    wanted.method = record.method;
    PatternModel model(wanted, record.scene);
    const std::size_t targets = std::max<std::size_t>(1, record.scene.sources().size());
    for (const double time : momentsOf(record.scene, MAX_PATTERNS / targets)) {
      if (record.scene.targetsAt(time).empty()) continue;
      model.setTime(time);
      PatternPicture all = model.picture();
      all.title = model.methodText();
      all.subtitle = model.shown().text();
      if (!all.note.empty() && run.patterns.empty()) run.facts.emplace_back("Array", all.note);
      all.note.clear();
      for (const PatternPicture::Panel& panel : all.panels) {
        PatternPicture one = all;
        one.panels = {panel};
        run.patterns.push_back(
            {all.sources[panel.source].id, time, one.drawn(PICTURE_WIDTH).svg()});
      }
    }
  }

  /// Times at which the scene changes, `most` or MAX_MOMENTS of them at most, evenly chosen.
  std::vector<double> momentsOf(const Audio::Scene& scene, std::size_t most) const {
    constexpr int STEPS = 10;  // of those that move
    std::set<double> times = {0.0};
    for (const auto& crowd : scene.crowds()) times.insert(std::max(0.0, crowd.time));
    for (const Audio::SceneSource& source : scene.sources()) {
      if (source.track.size() < 2) continue;
      for (int i = 0; i < STEPS; ++i) times.insert(page.duration * i / STEPS);
    }
    times.erase(times.lower_bound(page.duration), times.end());
    const std::vector<double> all(times.begin(), times.end());
    const std::size_t count = std::min({all.size(), std::max<std::size_t>(1, most), MAX_MOMENTS});
    std::vector<double> chosen;
    for (std::size_t i = 0; i < count; ++i) chosen.push_back(all[i * all.size() / count]);
    return chosen;
  }

  void addScores(const Run& run, ReportRun& result) {
    if (references.empty() || run.sources.size() != references.size()) return;
    const int taps = std::min(MAX_TAPS, MAX_SYSTEM / static_cast<int>(references.size()));
    const std::string channel = referenceChannel();
    std::size_t length = std::numeric_limits<std::size_t>::max();
    const auto read = [&](const std::string& path) {
      const Signal signal = samplesOf({path, channel, {}}, rate);
      length = std::min(length, signal.samples.size());
      return NamedSignal{path, {signal.samples.begin(), signal.samples.end()}};
    };
    std::vector<NamedSignal> truth;
    std::vector<NamedSignal> estimates;
    for (const std::string& path : references) truth.push_back(read(path));
    for (const RunSource& source : run.sources) estimates.push_back(read(source.path));
    std::optional<NamedSignal> before;
    if (!mixture.empty()) before = read(mixture);
    for (auto* list : {&truth, &estimates}) {
      for (NamedSignal& signal : *list) signal.samples.resize(length);
    }
    if (before) before->samples.resize(length);
    const ScoreMetrics metrics(std::move(truth), taps);
    page.scoreHeads = {"source",      "SI-SDR (dB)",    "SI-SIR (dB)",
                       "SI-SAR (dB)", "mixture SI-SDR", "mixture SI-SIR"};
    page.scoreNote = fmt::format(
        "Each output against the same source alone at microphone {}, with a filter of {} taps "
        "between the two allowed.",
        channel, taps);
    for (std::size_t i = 0; i < estimates.size(); ++i) {
      const SourceScore score = metrics.score(estimates[i], i);
      ReportRow row = {std::to_string(run.sources[i].id), decibels(score.sdr), decibels(score.sir),
                       decibels(score.sar)};
      if (before) {
        const SourceScore mixed = metrics.score(*before, i);
        row.insert(row.end(), {decibels(mixed.sdr), decibels(mixed.sir)});
      }
      result.scores.push_back(std::move(row));
    }
  }

  const ReportRequest& request;
  ReportPage page;
  std::vector<Run> runs;
  std::string mixture;
  std::vector<std::string> references;
  std::vector<SoundFile> sounds;
  int rate = 0;
};

}  // namespace

void checkReportFile(const std::string& path, bool overwrite,
                     const std::vector<std::string>& inputs) {
  if (fs::path(path).extension() != ".html") {
    throw CLI::ValidationError("report",
                               fmt::format("\"{}\", expected a name that ends in .html", path));
  }
  checkOutput(path, overwrite, inputs);
}

void writeReport(const ReportRequest& request) {
  const std::string html = Builder(request).build().html();
  Audio::OutputFile file(request.output, request.force);
  file.write(html);
  file.finish();
}
