#include "cli/ScoreCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "audio/SignalFile.h"
#include "cli/OptionChecks.h"
#include "cli/OutputCheck.h"
#include "cli/StreamOptions.h"
#include "dsp/DataError.h"
#include "scoring/ScoreMetrics.h"
#include "scoring/ScoreReport.h"

namespace {

constexpr int MAX_TAPS = 1024;
constexpr int MAX_CHANNEL = 1024;

// The filters are found with a square matrix of that many rows: half a gigabyte.
constexpr std::size_t MAX_SYSTEM = 8192;

// By how many dB an estimate must fit a reference better to count as meant for it.
constexpr double NOTICEABLE_FIT = 1.0;

struct ScoreOptions {
  std::vector<std::string> references;
  std::vector<std::string> estimates;
  std::string mixture;
  int channel = 1;
  int filterTaps = 512;
  std::string range;  ///< "BEGIN:END" in seconds; empty: all
  bool json = false;
  std::string output;
  bool force = false;
};

void checkUsage(const ScoreOptions& options) {
  if (options.estimates.size() != options.references.size()) {
    throw CLI::ValidationError("--estimate",
                               fmt::format("{} given, expected as many as there are references, {}",
                                           options.estimates.size(), options.references.size()));
  }
  const std::size_t rows = options.references.size() * static_cast<std::size_t>(options.filterTaps);
  if (rows > MAX_SYSTEM) {
    throw CLI::ValidationError(
        "--filter-taps", fmt::format("{} taps for {} references, expected at most {} in all",
                                     options.filterTaps, options.references.size(), MAX_SYSTEM));
  }
}

std::vector<std::string> inputsOf(const ScoreOptions& options) {
  std::vector<std::string> inputs = {options.mixture};
  for (const auto* files : {&options.references, &options.estimates}) {
    inputs.insert(inputs.end(), files->begin(), files->end());
  }
  return inputs;
}

struct LoadedSignals {
  std::vector<NamedSignal> references;
  std::vector<NamedSignal> estimates;
  std::vector<NamedSignal> mixture;  // one, or none
};

/// Reads the files into signals of one length and notes in the report what that left out.
class Loader {
 public:
  Loader(const ScoreOptions& given, ScoreReport& target) : options(given), report(target) {}

  LoadedSignals load() {
    LoadedSignals signals;
    for (const std::string& path : options.references) signals.references.push_back(read(path));
    for (const std::string& path : options.estimates) signals.estimates.push_back(read(path));
    if (!options.mixture.empty()) signals.mixture.push_back(read(options.mixture));
    for (auto* group : {&signals.references, &signals.estimates, &signals.mixture}) {
      for (NamedSignal& signal : *group) shorten(signal);
    }
    if (!options.range.empty()) cut(signals);
    return signals;
  }

 private:
  NamedSignal read(const std::string& path) {
    const Signal signal = readSignal(path, options.channel);
    if (report.samplingRate == 0) {
      report.samplingRate = signal.samplingRate;
      report.samples = signal.samples.size();
    } else if (signal.samplingRate != report.samplingRate) {
      throw DataError(fmt::format("{}: the sampling rate is {} Hz, expected {} Hz as in {}", path,
                                  signal.samplingRate, report.samplingRate,
                                  options.references.front()));
    }
    report.samples = std::min(report.samples, signal.samples.size());
    return {path, std::vector<double>(signal.samples.begin(), signal.samples.end())};
  }

  void shorten(NamedSignal& signal) {
    if (signal.samples.size() == report.samples) return;
    report.notes.push_back(
        fmt::format("{}: has {} samples, of which the first {} are compared, the length of the "
                    "shortest file",
                    signal.name, signal.samples.size(), report.samples));
    signal.samples.resize(report.samples);
  }

  // Keeps the range alone, which must lie in the signals.
  void cut(LoadedSignals& signals) {
    const Audio::TimeRange range = timeRangesOf(options.range).front();
    const auto begin = static_cast<std::size_t>(std::lround(range.begin * report.samplingRate));
    const auto end = static_cast<std::size_t>(std::lround(range.end * report.samplingRate));
    if (begin >= end || end > report.samples) {
      throw DataError(fmt::format("--range is {}, expected a part of the signals' {} s",
                                  options.range,
                                  static_cast<double>(report.samples) / report.samplingRate));
    }
    for (auto* group : {&signals.references, &signals.estimates, &signals.mixture}) {
      for (NamedSignal& signal : *group) {
        signal.samples.resize(end);
        signal.samples.erase(signal.samples.begin(),
                             signal.samples.begin() + static_cast<std::ptrdiff_t>(begin));
      }
    }
    report.samples = end - begin;
  }

  const ScoreOptions& options;
  ScoreReport& report;
};

/// A note when an estimate fits another reference better than its own does and than the estimate in
/// that place does; empty otherwise. A mixture given for every source fits none of them better.
std::string orderNote(const ScoreMetrics& metrics, const std::vector<NamedSignal>& estimates,
                      const std::vector<std::string>& references) {
  std::vector<std::vector<double>> fits;  // fits[n][m]: of estimate n to reference m, dB
  for (const NamedSignal& estimate : estimates) {
    fits.emplace_back();
    for (std::size_t m = 0; m < references.size(); ++m) {
      fits.back().push_back(metrics.fit(estimate, m));
    }
  }
  std::string misplaced;
  for (std::size_t n = 0; n < estimates.size(); ++n) {
    const auto best = std::max_element(fits[n].begin(), fits[n].end());
    const auto m = static_cast<std::size_t>(best - fits[n].begin());
    if (*best <= std::max(fits[n][n], fits[m][m]) + NOTICEABLE_FIT) continue;
    misplaced += fmt::format("{}{} fits {} better than {}", misplaced.empty() ? "" : ", ",
                             estimates[n].name, references[m], references[n]);
  }
  if (misplaced.empty()) return misplaced;
  return misplaced + ": is the order of the estimates that of the references?";
}

ScoreReport makeReport(const ScoreOptions& options) {
  ScoreReport report;
  report.filterTaps = options.filterTaps;
  LoadedSignals signals = Loader(options, report).load();
  const ScoreMetrics metrics(std::move(signals.references), options.filterTaps);
  for (std::size_t i = 0; i < signals.estimates.size(); ++i) {
    ScoreReport::Source source{
        options.references[i], options.estimates[i], metrics.score(signals.estimates[i], i), {}};
    if (!signals.mixture.empty()) source.mixture = metrics.score(signals.mixture.front(), i);
    report.sources.push_back(std::move(source));
  }
  const std::string note = orderNote(metrics, signals.estimates, options.references);
  if (!note.empty()) report.notes.push_back(note);
  return report;
}

void score(const ScoreOptions& options) {
  checkUsage(options);
  refuseSharedInput(inputsOf(options));
  if (!options.output.empty()) checkOutput(options.output, options.force, inputsOf(options));
  const ScoreReport report = makeReport(options);
  for (const std::string& note : report.notes) std::cerr << "zelk-sss: " << note << std::endl;
  const std::string text = options.json ? report.json() : report.table();
  writeResult(text, options.output, options.force);
}

}  // namespace

void addScoreCommand(CLI::App& app) {
  const auto options = std::make_shared<ScoreOptions>();
  CLI::App* command = app.add_subcommand(
      "score", "Score separated sources against references: SI-SDR, SI-SIR, SI-SAR in dB");
  command
      ->add_option("--reference", options->references,
                   "Each source's image at a microphone; one of the files may be -, standard input")
      ->required();
  command->add_option("--estimate", options->estimates, "The separated sources, in the same order")
      ->required();
  command->add_option("--mixture", options->mixture,
                      "What was separated; adds the improvements over it to the scores");
  command
      ->add_option("--channel", options->channel,
                   "Channel to take from files of several channels, from 1")
      ->check(isBetween(1, MAX_CHANNEL))
      ->capture_default_str();
  command
      ->add_option("--filter-taps", options->filterTaps,
                   "Length of a filter that an estimate may have been through without loss")
      ->check(isBetween(1, MAX_TAPS))
      ->capture_default_str();
  command
      ->add_option("--range", options->range,
                   "Score this part alone, BEGIN:END in seconds; default: all")
      ->check(isTimeRange());
  command->add_flag("--json", options->json, "Write JSON instead of a table");
  command->add_option("-o,--output", options->output,
                      "File for the result instead of standard output");
  command->add_flag("--force", options->force, "Replace an existing output file");
  command->callback([options] { score(*options); });
}
