#include "cli/SeparateCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "cli/NetworkRun.h"
#include "cli/OutputFile.h"
#include "cli/SeparationNetwork.h"
#include "fileio/SofaFile.h"
#include "toolbox/core/AudioError.h"
#include "toolbox/core/AudioReader.h"
#include "toolbox/core/FrameLayout.h"
#include "toolbox/core/Scene.h"

namespace {

constexpr int DEFAULT_LENGTH = 512;
constexpr int DEFAULT_ADVANCE = 160;

struct Options {
  SeparationSettings settings;
  std::string method = "NULL";
  std::vector<std::string> parameters;  ///< NAME=VALUE
  std::string projection = "auto";
  bool printNetwork = false;
  bool quiet = false;
};

/// Options that contradict each other or a method; the main reports them as misuse.
[[noreturn]] void misuse(const std::string& text) { throw CLI::ValidationError(text); }

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
      settings.methodParameters[name] = assignment.substr(equals + 1);
      return;
    }
    names += (names.empty() ? "" : ", ") + parameter.name;
  }
  misuse(fmt::format("--param names \"{}\", expected a parameter of {}: {}", name,
                     settings.method->name, names.empty() ? "it has none" : names));
}

/// Time ranges as the command line has them, 0:1.5,4:5, to the nodes' 0-1.5,4-5.
std::string withDashes(std::string ranges) {
  std::replace(ranges.begin(), ranges.end(), ':', '-');
  return ranges;
}

void applyMethod(Options& options) {
  SeparationSettings& s = options.settings;
  try {
    s.method = &methodNamed(options.method);
  } catch (const std::invalid_argument& error) {
    misuse(error.what());
  }
  for (const std::string& assignment : options.parameters) addMethodParameter(assignment, s);
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
  s.noiseRanges = withDashes(s.noiseRanges);
  s.project =
      options.projection == "on" || (options.projection == "auto" && s.method->nodeType == "MSNR");
}

/// Takes frame length and sampling rate from the database; they must agree with what was asked for.
/// Returns the number of microphones.
std::size_t applyDatabase(SeparationSettings& s) {
  const SofaFile file(s.database);
  if (!file.isTransferFunctions()) {
    throw SofaError(
        fmt::format("{}: holds impulse responses, expected transfer functions (make "
                    "them with: zelk-sss tfdb import)",
                    s.database));
  }
  const int length = 2 * (static_cast<int>(file.length()) - 1);
  const int rate = static_cast<int>(std::lround(file.samplingRate()));
  if (s.length != 0 && s.length != length) {
    throw SofaError(fmt::format("--length is {}, but {} was made for frames of {} samples",
                                s.length, s.database, length));
  }
  if (s.samplingRate != 0 && s.samplingRate != rate) {
    throw SofaError(fmt::format("--rate is {} Hz, but {} was made for {} Hz", s.samplingRate,
                                s.database, rate));
  }
  s.length = length;
  s.samplingRate = rate;
  return file.receivers();
}

/// Opens the recording as the network will, to complain early and to know how long it is.
std::optional<std::int64_t> applyRecording(SeparationSettings& s, std::size_t microphones) {
  Audio::AudioReaderOptions reading;
  reading.channels = s.channels;
  reading.samplingRate = s.samplingRate;
  reading.resample = s.resample;
  reading.warn = [](const std::string&) {};  // the network will warn
  const Audio::AudioReader reader(s.recording, reading);
  if (microphones != 0 && static_cast<std::size_t>(reader.channelCount()) != microphones) {
    throw Audio::AudioError(
        fmt::format("{}: gives {} channels, but {} holds {} microphones (--channels selects)",
                    s.recording, reader.channelCount(), s.database, microphones));
  }
  if (s.reference < 1 || s.reference > reader.channelCount()) {
    throw Audio::AudioError(
        fmt::format("--reference-mic is {}, expected 1 to {}", s.reference, reader.channelCount()));
  }
  s.samplingRate = reader.samplingRate();
  return reader.announcedSamples();
}

/// What the run wrote, from the timeline that the writer left.
void printReport(const SeparationSettings& s, double seconds) {
  const std::string path = s.directory + "/timeline.json";
  std::ifstream file(path);
  const nlohmann::json timeline = nlohmann::json::parse(file, nullptr, false);
  if (timeline.is_discarded()) throw RunError(path + ": the writer left no readable timeline");
  for (const nlohmann::json& source : timeline["sources"]) {
    double active = 0.0;
    for (const nlohmann::json& range : source["active"]) {
      active += range[1].get<double>() - range[0].get<double>();
    }
    std::cout << fmt::format("{}/{}  source {}, active {:.2f} s", s.directory,
                             source["file"].get<std::string>(), source["id"].get<int>(), active);
    if (source["clipped_samples"].get<std::int64_t>() > 0) {
      std::cout << fmt::format(", {} samples clipped",
                               source["clipped_samples"].get<std::int64_t>());
    }
    std::cout << "\n";
  }
  std::cout << path << "\n";
  const double duration = timeline["samples"].get<double>() / s.samplingRate;
  std::cout << fmt::format(
      "{:.2f} s of sound in {:.2f} s, real-time factor {:.3f}; latency {} "
      "samples ({:.1f} ms)\n",
      duration, seconds, duration > 0 ? seconds / duration : 0.0, s.length,
      1000.0 * s.length / s.samplingRate);
}

/// Complains before the work starts, in the command's own words; the writer checks again.
void refuseEarlierFiles(const SeparationSettings& s, const Audio::Scene& scene) {
  std::vector<std::string> names = {"timeline.json"};
  for (const Audio::SceneSource& source : scene.sources()) {
    names.push_back(fmt::format("{}{}.wav", s.prefix, source.id));
  }
  for (const std::string& name : names) {
    const std::filesystem::path path = std::filesystem::path(s.directory) / name;
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) continue;
    throw OutputError(fmt::format(
        "{}: exists already, expected no files of an earlier run (--force replaces them)",
        path.string()));
  }
}

void separate(Options options) {
  applyMethod(options);
  SeparationSettings& s = options.settings;
  const std::size_t microphones = s.method->needsDatabase() ? applyDatabase(s) : 0;
  if (s.length == 0) s.length = DEFAULT_LENGTH;
  if (s.advance == 0) s.advance = std::min(DEFAULT_ADVANCE, std::max(1, s.length / 4));
  const Audio::FrameLayout layout(s.length, s.advance);
  const std::optional<std::int64_t> samples = applyRecording(s, microphones);
  const Audio::Scene scene = Audio::Scene::read(s.scene);
  const FD::NetworkDocument network = separationNetwork(s);
  if (options.printNetwork) {
    std::cout << network.toXml();
    return;
  }

  if (!s.overwrite) refuseEarlierFiles(s, scene);
  const auto start = std::chrono::steady_clock::now();
  std::ostringstream ignored;
  runDocument(network, {}, ignored, options.quiet || !samples ? 0 : layout.frameCount(*samples));
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  if (!options.quiet) printReport(s, elapsed.count());
}

void addSoundOptions(CLI::App& command, SeparationSettings& s) {
  command.add_option("--length", s.length, "Samples per frame; default: the database's, or 512");
  command.add_option("--advance", s.advance,
                     "Samples from frame to frame; default 160, at most a quarter frame");
  command.add_option("--rate", s.samplingRate, "Sampling rate in Hz; default: the database's");
  command.add_option("--window", s.window, "HANN, HAMMING, SINE or RECTANGULAR")
      ->capture_default_str();
  command.add_option("--channels", s.channels, "Channels to use, as 1-4,7; default: all");
  command.add_flag("--resample", s.resample, "Convert a recording of another sampling rate");
  command
      .add_option("--non-finite", s.nonFinite,
                  "ZERO replaces samples that are NaN or infinite, KEEP passes them on")
      ->capture_default_str();
  command.add_option("--format", s.format, "PCM_16, PCM_24 or FLOAT")->capture_default_str();
  command.add_option("--prefix", s.prefix, "File names are <prefix><id>.wav")
      ->capture_default_str();
}

}  // namespace

void addSeparateCommand(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  SeparationSettings& s = options->settings;
  CLI::App* command = app.add_subcommand("separate", "Separate a recording into its sources");
  command->add_option("MIX", s.recording, "The recording, a channel per microphone")->required();
  command->add_option("--tf", s.database, "Transfer-function database (SOFA, DataType TF)");
  command->add_option("--sources", s.scene, "Scene file: which sources, where, when")->required();
  command->add_option("--method", options->method, "See: zelk-sss methods")->capture_default_str();
  command->add_option("--param", options->parameters,
                      "NAME=VALUE, a parameter of the method; may be repeated");
  command->add_option("-o,--output", s.directory, "Folder for the separated files")->required();
  addSoundOptions(*command, s);
  command->add_option("--noise-from", s.noiseRanges,
                      "ML: when the recording holds noise alone, seconds, as 0:1.5,4:5; default: "
                      "while no source is active");
  command->add_option("--noise-recording", s.noiseRecording, "ML: a recording of the noise alone");
  command
      ->add_option("--noise-loading", s.noiseLoading,
                   "ML: share of the mean added to each noise matrix's diagonal")
      ->capture_default_str();
  command
      ->add_option("--project", options->projection,
                   "Scale the outputs to the reference microphone: on, off or auto (MSNR only)")
      ->check(CLI::IsMember({"on", "off", "auto"}))
      ->capture_default_str();
  command->add_option("--reference-mic", s.reference, "The reference microphone, from 1")
      ->capture_default_str();
  command->add_flag("--debug", s.debug, "Report NaN and infinite values of the output");
  command->add_flag("--force", s.overwrite, "Replace files of an earlier run");
  command->add_flag("--print-network", options->printNetwork,
                    "Print the network document instead of running it");
  command->add_flag("--quiet", options->quiet, "No progress bar, no report");
  command->callback([options] { separate(*options); });
}
