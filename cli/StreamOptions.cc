#include "cli/StreamOptions.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "audio/RawFormat.h"
#include "audio/SeparatedStream.h"
#include "cli/SeparationOptions.h"
#include "dsp/DataError.h"

namespace {

/// Encodings of --raw-output, and the --format that each is.
constexpr std::array<std::pair<const char*, const char*>, 3> ENCODINGS = {
    {{"S16_LE", "PCM_16"}, {"S24_3LE", "PCM_24"}, {"FLOAT_LE", "FLOAT"}}};

}  // namespace

bool isStandardInput(const std::string& path) {
  return path == "-" || path == "/dev/stdin" || path == "/dev/fd/0" || path == "/proc/self/fd/0";
}

void refuseSharedInput(const std::vector<std::string>& files) {
  if (std::count_if(files.begin(), files.end(), isStandardInput) < 2) return;
  misuse("standard input is several of the files at once, expected the others elsewhere");
}

void addStreamOptions(CLI::App& command, SeparationSettings& s) {
  command.add_option("--raw", s.raw,
                     "The recording has no header: ENCODING,CHANNELS,RATE, as S16_LE,8,16000");
  command
      .add_option("--raw-output", s.rawOutput,
                  "-o -: samples of this encoding without header, instead of WAV")
      ->check(CLI::IsMember({ENCODINGS[0].first, ENCODINGS[1].first, ENCODINGS[2].first}));
}

void applyStreamOptions(const CLI::App& command, SeparationSettings& s) {
  if (!s.raw.empty()) {
    try {
      Audio::parseRawFormat(s.raw, "--raw");
    } catch (const DataError& error) {
      misuse(error.what());
    }
  }
  if (s.directory == "-" && areLive(s.tracks, s.recording)) {
    misuse(
        "-o - has a channel for each source, whom a tracker that is followed does not tell "
        "beforehand; expected a folder");
  }
  if (isStandardInput(s.recording) && isStandardInput(s.tracks.input)) {
    misuse("--tracks is \"-\", from which the recording comes already, expected another input");
  }
  if (isStandardInput(s.recording) && isStandardInput(s.scene.file)) {
    misuse("standard input is recording and scene at once, expected one of them elsewhere");
  }
  const bool isStream = s.directory == "-";
  for (const char* option : {"--prefix", "--force"}) {
    if (isStream && command.count(option) > 0) {
      misuse(fmt::format("{} serves files, expected none with -o -", option));
    }
  }
  if (s.rawOutput.empty()) return;
  if (!isStream) misuse("--raw-output serves -o -, expected it with that");
  if (command.count("--format") > 0) {
    misuse("--format and --raw-output exclude each other, expected one of them");
  }
  s.format = std::find_if(ENCODINGS.begin(), ENCODINGS.end(), [&](const auto& encoding) {
               return s.rawOutput == encoding.first;
             })->second;
}

std::unique_ptr<Audio::SeparatedOutput> openStreamOutput(const SeparationSettings& s,
                                                         const Audio::Scene& scene) {
  if (isatty(STDOUT_FILENO) != 0) {
    throw DataError("-o -: standard output is a terminal, expected a pipe or a file");
  }
  Audio::SeparatedStreamOptions options;
  for (const Audio::SceneSource& source : scene.sources()) options.ids.push_back(source.id);
  options.samplingRate = s.samplingRate;
  options.format = Audio::sampleFormatNamed(s.format);
  options.hasHeader = s.rawOutput.empty();
  return std::make_unique<Audio::SeparatedStream>(STDOUT_FILENO, "standard output", options);
}

std::string channelNote(const Audio::Scene& scene) {
  std::string note;
  int channel = 0;
  for (const Audio::SceneSource& source : scene.sources()) {
    note += fmt::format("{}channel {}: source {}", note.empty() ? "" : ", ", ++channel, source.id);
  }
  return note;
}
