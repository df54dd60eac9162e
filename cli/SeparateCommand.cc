#include "cli/SeparateCommand.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>

#include "ParameterValue.h"
#include "audio/FolderLock.h"
#include "audio/SeparatedFiles.h"
#include "cli/ArraysCommand.h"
#include "cli/OptionChecks.h"
#include "cli/OutputCheck.h"
#include "cli/PrintableOutput.h"
#include "cli/SceneOptions.h"
#include "cli/SeparationInputs.h"
#include "cli/SeparationNetwork.h"
#include "cli/SeparationRun.h"
#include "net_types.h"
#include "responses/KnownArrays.h"

namespace {

struct Options {
  SeparationSettings settings;
  std::string method = "NULL";
  std::vector<std::string> parameters;    ///< NAME=VALUE
  std::vector<std::string> noiseOptions;  ///< those given that say how noise is learnt
  std::string projection = "auto";
  std::string halfFrameShift = "auto";
  std::string inactiveAsNoise = "auto";
  bool printNetwork = false;
  bool quiet = false;
};

/// Options that contradict each other or a method; the main reports them as misuse.
[[noreturn]] void misuse(const std::string& text) { throw CLI::ValidationError(text); }

/// The value as it came, if the parameter may have it.
std::string checkedValue(const MethodParameter& parameter, const std::string& value) {
  FD::ObjectRef parsed;
  try {
    parsed = FD::parseValue(parameter.type, value);
  } catch (const std::invalid_argument& error) {
    misuse(fmt::format("--param {} is \"{}\": {}", parameter.name, value, error.what()));
  }
  if (parameter.type == "float") {
    const float number = FD::dereference_cast<float>(parsed);
    const NumberRange& range = parameter.range;
    if (!(number >= range.least && number <= range.most)) {
      misuse(fmt::format("--param {} is \"{}\", expected {}", parameter.name, value, range.text));
    }
  }
  const std::vector<std::string>& choices = parameter.choices;
  if (!choices.empty() && std::find(choices.begin(), choices.end(), value) == choices.end()) {
    misuse(fmt::format("--param {} is \"{}\", expected {}", parameter.name, value,
                       fmt::join(choices, ", ")));
  }
  return value;
}

/// Splits NAME=VALUE and checks the name against the method's parameters.
void addMethodParameter(const std::string& assignment, SeparationSettings& settings) {
  const std::size_t equals = assignment.find('=');
  const std::string name = assignment.substr(0, equals);
  if (equals == std::string::npos) {
    misuse(fmt::format("--param is \"{}\", expected NAME=VALUE", assignment));
  }
  std::string names;
  for (const MethodParameter& parameter : settings.method->parameters) {
    if (parameter.name == name) {
      if (settings.methodParameters.contains(name)) {
        misuse(fmt::format("--param names \"{}\" twice, expected it once", name));
      }
      settings.methodParameters[name] = checkedValue(parameter, assignment.substr(equals + 1));
      return;
    }
    names += (names.empty() ? "" : ", ") + parameter.name;
  }
  misuse(fmt::format("--param names \"{}\", expected a parameter of {}: {}", name,
                     settings.method->name, names.empty() ? "it has none" : names));
}

/// GICA's separation step may take its size from the constraint's.
void refuseUnusedStep(const SeparationSettings& s) {
  const auto chosen = s.methodParameters.find("GICA_SS_METHOD");
  if (chosen == s.methodParameters.end() || chosen->second != "LC_MYU") return;
  if (!s.methodParameters.contains("GICA_SS_MYU")) return;
  misuse("--param GICA_SS_MYU is not used where GICA_SS_METHOD is LC_MYU, expected one of them");
}

/// Time ranges as the command line has them, 0:1.5,4:5, to the nodes' 0-1.5,4-5.
std::string withDashes(std::string ranges) {
  std::replace(ranges.begin(), ranges.end(), ':', '-');
  return ranges;
}

void checkScene(Options& options) {
  SeparationSettings& s = options.settings;
  s.scene.recording = std::filesystem::path(s.recording).stem().string();
  if (!s.tracks.isGiven()) return requireScene(s.scene, ", or --tracks");
  if (s.scene.isGiven()) misuse("--tracks and --sources or --source exclude each other");
  if (s.tracks.input == "-" && s.recording == "-") {
    misuse("--tracks is \"-\", from which the recording comes already, expected another input");
  }
  if (!areLive(s.tracks, s.recording)) return;
  // The sources that went would become ever more.
  if (options.inactiveAsNoise == "on") {
    misuse("--inactive-as-noise on does not go with a tracker that is followed while it works");
  }
  options.inactiveAsNoise = "off";
}

void applyMethod(Options& options) {
  SeparationSettings& s = options.settings;
  try {
    s.method = &methodNamed(options.method);
  } catch (const std::invalid_argument& error) {
    misuse(error.what());
  }
  for (const std::string& assignment : options.parameters) addMethodParameter(assignment, s);
  refuseUnusedStep(s);
  if (s.method->needsDatabase() && s.database.empty()) {
    misuse(fmt::format("--tf is missing: {} needs a transfer-function database", s.method->name));
  }
  const bool noiseGiven = !s.noiseRanges.empty() || !s.noiseRecording.empty();
  if (noiseGiven && s.method->nodeType != "ML") {
    misuse(fmt::format("--noise-from and --noise-recording serve ML, not {}", s.method->name));
  }
  if (!s.noiseRanges.empty() && !s.noiseRecording.empty()) {
    misuse("--noise-from and --noise-recording exclude each other");
  }
  for (const std::string& option : options.noiseOptions) {
    if (s.method->nodeType == "ML") continue;
    misuse(fmt::format("{} serves ML, not {}", option, s.method->name));
  }
  if (!s.noiseChannels.empty() && s.noiseRecording.empty()) {
    misuse("--noise-channels selects of a noise recording, expected --noise-recording, too");
  }
  s.noiseRanges = withDashes(s.noiseRanges);
  const auto chosen = [](const std::string& choice, bool automatic) {
    return choice == "on" || (choice == "auto" && automatic);
  };
  const bool learnsFromSilence = s.method->nodeType == "MSNR";
  s.project = chosen(options.projection, learnsFromSilence);
  s.inactiveAsNoise = chosen(options.inactiveAsNoise, learnsFromSilence);
  // Projection turns each bin back by itself.
  s.undoHalfFrameShift = chosen(options.halfFrameShift, s.method->nodeType == "ML" && !s.project);
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
  std::cout << fmt::format(
      "{:.2f} s of sound in {:.2f} s, real-time factor {:.3f}; latency {} "
      "samples ({:.1f} ms)\n",
      duration, seconds, duration > 0 ? seconds / duration : 0.0, s.length,
      1000.0 * s.length / s.samplingRate);
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
    refuseInput(path, {s.recording, s.database, s.scene.file, s.tracks.input, s.noiseRecording});
  }
}

void separate(Options options) {
  checkScene(options);
  applyMethod(options);
  SeparationSettings& s = options.settings;
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

void addSoundOptions(CLI::App& command, SeparationSettings& s) {
  command.add_option("--length", s.length, "Samples per frame; default: the database's, or 512")
      ->check(isPositive());
  command
      .add_option("--advance", s.advance,
                  "Samples from frame to frame; default: a quarter of the frame")
      ->check(isPositive());
  command
      .add_option("--rate", s.samplingRate,
                  "Sampling rate in Hz; default: the database's, or the recording's")
      ->check(isPositive());
  command.add_option("--window", s.window, "Shape of the frames")
      ->check(CLI::IsMember({"HANN", "HAMMING", "SINE", "RECTANGULAR"}))
      ->capture_default_str();
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

void addNoiseOptions(CLI::App& command, SeparationSettings& s) {
  command
      .add_option("--noise-from", s.noiseRanges,
                  "ML: when the recording holds noise alone, seconds, as 0:1.5,4:5; default: "
                  "while no source is active")
      ->check(isTimeRanges());
  command.add_option("--noise-recording", s.noiseRecording, "ML: a recording of the noise alone");
  command.add_option("--noise-channels", s.noiseChannels,
                     "ML: channels of the noise recording; default: as --channels");
  command
      .add_option("--noise-loading", s.noiseLoading,
                  "ML: share of the mean added to each noise matrix's diagonal")
      ->check(isNonNegative())
      ->capture_default_str();
  command
      .add_option("--noise-forgetting", s.noiseForgetting,
                  "ML: how much of the running mean of the noise a new frame leaves")
      ->check(isBetween(0.0, 1.0))
      ->capture_default_str();
  command
      .add_option("--noise-normalize", s.noiseNormalize,
                  "ML: scale each noise matrix to a mean diagonal of 1, true or false")
      ->capture_default_str();
}

void addChoice(CLI::App& command, const std::string& name, std::string& value,
               const std::string& meaning) {
  command.add_option(name, value, meaning)
      ->check(CLI::IsMember({"on", "off", "auto"}))
      ->capture_default_str();
}

void addOutputOptions(CLI::App& command, Options& options) {
  SeparationSettings& s = options.settings;
  addChoice(command, "--project", options.projection,
            "Scale the outputs to the reference microphone; auto: for MSNR");
  command.add_option("--reference-mic", s.reference, "The reference microphone, from 1")
      ->capture_default_str();
  command
      .add_option("--project-forgetting", s.projectionForgetting,
                  "How much of the scale's averages a new frame leaves")
      ->check(isBetween(0.0, 1.0))
      ->capture_default_str();
  addChoice(command, "--half-frame-shift", options.halfFrameShift,
            "Undo a shift by half a frame; auto: for ML that is not projected");
  addChoice(command, "--inactive-as-noise", options.inactiveAsNoise,
            "List sources as noise while they are silent; auto: for MSNR");
}

}  // namespace

void addSeparateCommand(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  SeparationSettings& s = options->settings;
  CLI::App* command = app.add_subcommand("separate", "Separate a recording into its sources");
  command->add_option("MIX", s.recording, "The recording, a channel per microphone")->required();
  command->add_option("--tf", s.database, "Transfer-function database (SOFA, DataType TF)");
  addDatabaseLimit(*command);
  addSceneOptions(*command, s.scene);
  addTrackOptions(*command, s.tracks);
  command->add_option("--method", options->method, "See: zelk-sss methods")->capture_default_str();
  command
      ->add_option("--param", options->parameters,
                   "NAME=VALUE, a parameter of the method; may be repeated")
      ->allow_extra_args(false);
  command->add_option("-o,--output", s.directory, "Folder for the separated files")->required();
  addSoundOptions(*command, s);
  addNoiseOptions(*command, s);
  addOutputOptions(*command, *options);
  command->add_flag("--debug", s.debug, "Report NaN and infinite values of the output");
  command->add_flag("--force", s.overwrite, "Replace files of an earlier run");
  command->add_flag("--print-network", options->printNetwork,
                    "Print the network document instead of running it");
  command->add_flag("--quiet", options->quiet, "No progress bar, no report");
  command->callback([options, command] {
    for (const char* name :
         {"--noise-channels", "--noise-loading", "--noise-forgetting", "--noise-normalize"}) {
      if (command->count(name) > 0) options->noiseOptions.emplace_back(name);
    }
    separate(*options);
  });
}
