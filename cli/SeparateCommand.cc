#include "cli/SeparateCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <thread>
#include <utility>

#include "audio/FolderLock.h"
#include "audio/OutputFile.h"
#include "audio/SeparatedFiles.h"
#include "audio/SeparatedStream.h"
#include "cli/ArraysCommand.h"
#include "cli/OptionChecks.h"
#include "cli/OutputCheck.h"
#include "cli/PrintableOutput.h"
#include "cli/RecordingJobs.h"
#include "cli/ReportBuilder.h"
#include "cli/SeparationInputs.h"
#include "cli/SeparationNetwork.h"
#include "cli/SeparationOptions.h"
#include "cli/SeparationRun.h"
#include "cli/StreamOptions.h"
#include "report/RunRecord.h"
#include "responses/KnownArrays.h"

namespace {

struct Options {
  SeparationOptions separation;
  std::vector<std::string> recordings;
  int jobs = 0;  ///< 0: as many as there are processors
  bool printNetwork = false;
  std::string report;  ///< a page to write, or empty
  bool quiet = false;
};

/// Time ranges as the command line has them, 0:1.5,4:5, to the nodes' 0-1.5,4-5.
std::string withDashes(std::string ranges) {
  std::replace(ranges.begin(), ranges.end(), ':', '-');
  return ranges;
}

/// Refuses what a network cannot do.
void checkNetwork(const SeparationSettings& s) {
  if (s.directory == "-" || s.scene.file == "-") {
    misuse(
        "--print-network makes networks that write files and read the scene from one, expected "
        "neither -o - nor --sources -");
  }
  const bool goesThroughTwice = s.passes > 1 || s.refinePasses > 0;
  if (goesThroughTwice) {
    misuse(
        "--print-network makes networks that go through the recording once, expected neither "
        "--passes nor --refine (--refine-live does with one)");
  }
  if (s.latencyInMs > 0.0) {
    misuse(
        "--latency needs windows that the nodes of a network do not have, expected "
        "--print-network without it (--length and --advance shorten the frames)");
  }
  if (s.postMask < 1.0F && !s.refineLive) {
    misuse("--post-mask needs --refine-live in a network, expected both or neither");
  }
}

std::string absolutePath(const std::string& path) {
  return path.empty() ? "" : std::filesystem::absolute(path).lexically_normal().string();
}

/// Writes down beside the files how they were made.
void writeRecord(const SeparationSettings& s, const SeparationInputs& inputs,
                 const SeparationResult& result, double seconds) {
  RunRecord record;
  record.version = ZELK_VERSION;
  // What came through a pipe cannot be heard again.
  if (!Audio::AudioReader::isStream(s.recording)) record.recording = absolutePath(s.recording);
  record.database = absolutePath(s.database);
  record.responses = absolutePath(s.responses);
  record.channels = s.channels;
  record.method = s.method->name;
  for (const MethodParameter& parameter : s.method->parameters) {
    const auto given = s.methodParameters.find(parameter.name);
    record.parameters.emplace_back(
        parameter.name, given == s.methodParameters.end() ? parameter.defaultValue : given->second);
  }
  record.length = s.length;
  record.advance = s.advance;
  record.window = s.latency > 0 ? "asymmetric" : s.window;
  record.latencySamples = s.outputLength();
  record.samplingRate = s.samplingRate;
  record.microphones = inputs.microphones;
  record.reference = s.reference;
  record.passes = s.passes + s.refinePasses;
  record.refinePasses = s.refinePasses;
  record.duration = static_cast<double>(result.samples) / s.samplingRate;
  record.elapsed = seconds;
  record.warnings = inputs.warnings;
  for (const Audio::SeparatedSound& file : result.files) {
    if (file.clipped == 0) continue;
    record.warnings.push_back(
        fmt::format("source {}: {} samples were clipped, the largest was "
                    "{:.3f} times full scale",
                    file.id, file.clipped, file.peak));
  }
  record.scene = inputs.scene;
  Audio::OutputFile file((std::filesystem::path(s.directory) / RunRecord::NAME).string(), true);
  file.write(record.json());
  file.finish();
}

void printFiles(const SeparationSettings& s, const SeparationResult& result) {
  for (const Audio::SeparatedSound& file : result.files) {
    double active = 0.0;
    for (const auto& [begin, end] : file.active) active += end - begin;
    std::cout << fmt::format("{}  source {}, active {:.2f} s", file.path, file.id, active);
    if (file.clipped > 0) std::cout << fmt::format(", {} samples clipped", file.clipped);
    std::cout << "\n";
  }
  std::cout << (std::filesystem::path(s.directory) / "timeline.json").string() << "\n";
}

/// How much sound the run separated, how fast.
void printSpeed(const SeparationSettings& s, const SeparationResult& result, double seconds) {
  std::ostream& out = s.directory == "-" ? std::cerr : std::cout;
  const double duration = static_cast<double>(result.samples) / s.samplingRate;
  out << fmt::format("{:.2f} s of sound in {:.2f} s, real-time factor {:.3f}; ", duration, seconds,
                     duration > 0 ? seconds / duration : 0.0);
  out << (result.passes > 1 ? fmt::format("{} passes\n", result.passes)
                            : fmt::format("latency {} samples ({:.1f} ms)\n", s.outputLength(),
                                          1000.0 * s.outputLength() / s.samplingRate));
}

/// Complains before the work starts; the files, when they are opened, do so again.
void checkFolder(const SeparationSettings& s, const Audio::Scene& scene) {
  std::error_code ignored;
  if (!std::filesystem::is_directory(s.directory, ignored)) return;
  const Audio::FolderLock lock(s.directory);
  if (!s.overwrite) Audio::refuseEarlierFiles(s.directory, s.prefix, FORCE_WORDS);
  // The run replaces these or removes them.
  std::vector<std::string> paths = Audio::SeparatedFiles::filesOfEarlierRun(s.directory);
  const std::filesystem::path folder = s.directory;
  paths.push_back((folder / "timeline.json").string());
  paths.push_back((folder / RunRecord::NAME).string());
  for (const Audio::SceneSource& source : scene.sources()) {
    paths.push_back((folder / fmt::format("{}{}.wav", s.prefix, source.id)).string());
  }
  for (const std::string& path : paths) {
    refuseInput(path, {s.recording, s.database, s.responses, s.scene.file, s.tracks.input,
                       s.noiseRecording});
  }
}

void separate(Options options) {
  SeparationSettings& s = options.separation.settings;
  s.noiseRanges = withDashes(s.noiseRanges);
  if (options.printNetwork) checkNetwork(s);
  SeparationInputs inputs = openInputs(s);
  if (options.printNetwork) {
    std::cout << separationNetwork(s).toXml();
    return;
  }
  const bool isStream = s.directory == "-";
  if (!options.report.empty()) {
    if (isStream) misuse("--report needs a folder of files, expected another -o than -");
    checkReportFile(options.report, s.overwrite,
                    {s.recording, s.database, s.responses, s.scene.file});
  }
  if (!isStream) checkFolder(s, inputs.scene);
  if (isStream && !options.quiet) warn(channelNote(inputs.scene));
  for (const std::string& warning : inputs.warnings) warn(warning);
  const auto start = std::chrono::steady_clock::now();
  const SeparationResult result = runSeparation(s, inputs, !options.quiet);
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  if (!isStream) writeRecord(s, inputs, result, elapsed.count());
  if (!options.report.empty()) {
    ReportRequest request;
    request.folders = {s.directory};
    request.output = options.report;
    request.force = s.overwrite;
    writeReport(request);
  }
  if (options.quiet) return;
  if (!isStream) {
    for (const std::string& note : inputs.notes) std::cout << note << "\n";
    printFiles(s, result);
  }
  if (!options.report.empty()) std::cout << options.report << "\n";
  printSpeed(s, result, elapsed.count());
}

/// Ends as where SIGPIPE is not ignored: quietly.
void separateInto(Options options) {
  try {
    separate(std::move(options));
  } catch (const Audio::ConsumerGone&) {
    std::signal(SIGPIPE, SIG_DFL);
    std::raise(SIGPIPE);
  }
}

std::string stemOf(const std::string& recording) {
  return std::filesystem::path(recording).stem().string();
}

/// The options for one of the recordings. "{}" in the scene's or tracks' name stands for the
/// recording's.
Options optionsFor(const Options& options, const std::string& recording) {
  Options one = options;
  SeparationSettings& s = one.separation.settings;
  s.recording = recording;
  if (options.recordings.size() > 1) {
    s.directory = (std::filesystem::path(s.directory) / stemOf(recording)).string();
  }
  s.scene.recording = stemOf(recording);
  for (std::string* const name : {&s.scene.file, &s.tracks.input}) {
    const std::size_t place = name->find("{}");
    if (place != std::string::npos) name->replace(place, 2, stemOf(recording));
  }
  return one;
}

/// Refuses what several recordings cannot share.
void checkSeveral(const Options& options) {
  std::map<std::string, std::string> owners;
  for (const std::string& recording : options.recordings) {
    if (Audio::AudioReader::isStream(recording)) {
      misuse(fmt::format("{} is a stream, expected it alone or files", recording));
    }
    const auto [owner, isNew] = owners.emplace(stemOf(recording), recording);
    if (isNew) continue;
    misuse(fmt::format("{} and {} would share the folder {}, expected names that differ",
                       owner->second, recording, stemOf(recording)));
  }
  if (!options.report.empty()) misuse("--report takes one recording");
  if (options.printNetwork) misuse("--print-network takes one recording");
  if (options.separation.settings.directory == "-") misuse("-o - takes one recording");
}

void separateAll(const Options& options) {
  if (options.recordings.size() == 1) {
    separateInto(optionsFor(options, options.recordings.front()));
    return;
  }
  checkSeveral(options);
  RecordingJobs jobs;
  jobs.recordings = options.recordings;
  jobs.processes = options.jobs > 0
                       ? options.jobs
                       : static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
  jobs.isQuiet = options.quiet;
  jobs.work = [&](std::size_t i) { separate(optionsFor(options, options.recordings[i])); };
  runJobs(jobs);
}

void addRecordingOptions(CLI::App& command, SeparationSettings& s) {
  command
      .add_option("--rate", s.samplingRate,
                  "Sampling rate in Hz; default: the database's, or the recording's")
      ->check(isPositive());
  CLI::Option* channels =
      command.add_option("--channels", s.channels, "Channels to use, as 1-4,7; default: all");
  command
      .add_option_function<std::string>(
          "--array", [&s](const std::string& name) { s.channels = knownArray(name).channels; },
          "Channels to use: those of an array that zelk-sss arrays lists")
      ->check(isArrayName())
      ->excludes(channels);
  command.add_flag("--resample", s.resample, "Convert a recording of another sampling rate");
  command
      .add_option(
          "--non-finite", s.nonFinite,
          "ZERO replaces samples that are NaN, infinite or beyond 1e15, KEEP passes them on")
      ->check(CLI::IsMember({"ZERO", "KEEP"}))
      ->capture_default_str();
  command.add_option("--format", s.format, "Samples of the separated files")
      ->check(CLI::IsMember({"PCM_16", "PCM_24", "FLOAT"}))
      ->capture_default_str();
  command.add_option("--prefix", s.prefix, "File names are <prefix><id>.wav")
      ->check([](const std::string& text) -> std::string {
        if (text.find('/') == std::string::npos) return {};
        return fmt::format("\"{}\", expected the begin of a file name without \"/\"", text);
      })
      ->capture_default_str();
}

}  // namespace

void addSeparateCommand(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  SeparationOptions& separation = options->separation;
  SeparationSettings& s = separation.settings;
  CLI::App* command = app.add_subcommand("separate", "Separate a recording into its sources");
  command
      ->add_option("MIX", options->recordings,
                   "The recording, a channel per microphone; - is standard input; several are "
                   "separated each into a folder of its name")
      ->required();
  separation.addModel(*command);
  command
      ->add_option("-o,--output", s.directory,
                   "Folder for the separated files; - writes one stream")
      ->required();
  separation.addFrames(*command);
  addRecordingOptions(*command, s);
  separation.addNoiseTimes(*command);
  separation.addNoiseRecording(*command);
  separation.addNoise(*command);
  separation.addOutputs(*command);
  separation.addPasses(*command);
  command->add_option("--report", options->report,
                      "Also write a page to hear and see the result in a browser, NAME.html");
  addStreamOptions(*command, s);
  command
      ->add_option("--jobs", options->jobs,
                   "Recordings separated at a time; default: as many as processors")
      ->check(isPositive());
  command->add_flag("--debug", s.debug, "Report NaN and infinite values of the output");
  command->add_flag("--force", s.overwrite, "Replace files of an earlier run");
  command->add_flag("--print-network", options->printNetwork,
                    "Print the network document instead of running it");
  command->add_flag("--quiet", options->quiet, "No progress bar, no report");
  command->footer(
      "Examples:\n"
      "  zelk-sss separate mix.wav --tf array.sofa --sources scene.json -o separated\n"
      "  zelk-sss separate mix.wav --tf array.sofa --sources scene.json --method GICA \\\n"
      "    --param GICA_SS_MYU=0.2 --report report.html -o separated\n"
      "  zelk-sss separate mix.wav --tf array.sofa --sources scene.json --refine 2 -o separated\n"
      "  zelk-sss separate mix.wav --sources scene.json --method MSNR -o separated\n"
      "  arecord -t raw -f S16_LE -c 8 -r 16000 | zelk-sss separate - --raw S16_LE,8,16000 \\\n"
      "    --tf array.sofa --sources scene.json -o - | aplay\n"
      "  zelk-sss separate day/*.wav --tf array.sofa --sources 'day/{}.scene.json' -o out --jobs "
      "4");
  command->callback([options, command] {
    options->separation.apply(*command);
    options->separation.settings.recording = options->recordings.front();
    applyStreamOptions(*command, options->separation.settings);
    separateAll(*options);
  });
}
