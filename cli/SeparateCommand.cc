#include "cli/SeparateCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>

#include "audio/FolderLock.h"
#include "audio/SeparatedFiles.h"
#include "cli/ArraysCommand.h"
#include "cli/OptionChecks.h"
#include "cli/OutputCheck.h"
#include "cli/PrintableOutput.h"
#include "cli/SeparationInputs.h"
#include "cli/SeparationNetwork.h"
#include "cli/SeparationOptions.h"
#include "cli/SeparationRun.h"
#include "responses/KnownArrays.h"

namespace {

struct Options {
  SeparationOptions separation;
  bool printNetwork = false;
  bool quiet = false;
};

/// Time ranges as the command line has them, 0:1.5,4:5, to the nodes' 0-1.5,4-5.
std::string withDashes(std::string ranges) {
  std::replace(ranges.begin(), ranges.end(), ':', '-');
  return ranges;
}

/// Refuses what a network cannot do.
void checkNetwork(const SeparationSettings& s) {
  const bool goesThroughTwice = s.passes > 1 || s.refinePasses > 0;
  if (goesThroughTwice) {
    misuse(
        "--print-network makes networks that go through the recording once, expected neither "
        "--passes nor --refine (--refine-live does with one)");
  }
  if (s.postMask < 1.0F && !s.refineLive) {
    misuse("--post-mask needs --refine-live in a network, expected both or neither");
  }
}

/// What the run wrote.
void printReport(const SeparationSettings& s, const SeparationResult& result, double seconds) {
  for (const Audio::SeparatedFile& file : result.files) {
    double active = 0.0;
    for (const auto& [begin, end] : file.active) active += end - begin;
    std::cout << fmt::format("{}  source {}, active {:.2f} s", file.path, file.id, active);
    if (file.clipped > 0) std::cout << fmt::format(", {} samples clipped", file.clipped);
    std::cout << "\n";
  }
  std::cout << (std::filesystem::path(s.directory) / "timeline.json").string() << "\n";
  const double duration = static_cast<double>(result.samples) / s.samplingRate;
  std::cout << fmt::format("{:.2f} s of sound in {:.2f} s, real-time factor {:.3f}; ", duration,
                           seconds, duration > 0 ? seconds / duration : 0.0);
  const int passes = s.passes + s.refinePasses;
  std::cout << (passes > 1 ? fmt::format("{} passes\n", passes)
                           : fmt::format("latency {} samples ({:.1f} ms)\n", s.length,
                                         1000.0 * s.length / s.samplingRate));
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
  checkFolder(s, inputs.scene);
  for (const std::string& warning : inputs.warnings) warn(warning);
  const auto start = std::chrono::steady_clock::now();
  const SeparationResult result = runSeparation(s, inputs, !options.quiet);
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  if (options.quiet) return;
  for (const std::string& note : inputs.notes) std::cout << note << "\n";
  printReport(s, result, elapsed.count());
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

/// Passes over the recording.
void addPassOptions(CLI::App& command, SeparationSettings& s) {
  command
      .add_option("--refine", s.refinePasses,
                  "Passes that separate anew, by MVDR from masks of what was separated before")
      ->check(CLI::Range(0, 100))
      ->capture_default_str()
      ->excludes("--refine-live");
  command
      .add_option("--passes", s.passes,
                  "How often the method goes through the recording; LCMV, GICA and MSNR learn on")
      ->check(CLI::Range(1, 100))
      ->capture_default_str();
}

}  // namespace

void addSeparateCommand(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  SeparationOptions& separation = options->separation;
  SeparationSettings& s = separation.settings;
  CLI::App* command = app.add_subcommand("separate", "Separate a recording into its sources");
  command->add_option("MIX", s.recording, "The recording, a channel per microphone")->required();
  separation.addModel(*command);
  command->add_option("-o,--output", s.directory, "Folder for the separated files")->required();
  separation.addFrames(*command);
  addRecordingOptions(*command, s);
  command
      ->add_option("--noise-from", s.noiseRanges,
                   "ML: when the recording holds noise alone, seconds, as 0:1.5,4:5; default: "
                   "while no source is active")
      ->check(isTimeRanges());
  separation.addNoise(*command);
  separation.addOutputs(*command);
  addPassOptions(*command, s);
  command->add_flag("--debug", s.debug, "Report NaN and infinite values of the output");
  command->add_flag("--force", s.overwrite, "Replace files of an earlier run");
  command->add_flag("--print-network", options->printNetwork,
                    "Print the network document instead of running it");
  command->add_flag("--quiet", options->quiet, "No progress bar, no report");
  command->callback([options, command] {
    options->separation.apply(*command);
    separate(*options);
  });
}
