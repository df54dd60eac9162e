#include "cli/TrackOptions.h"

#include <fmt/format.h>

#include <filesystem>

#include "cli/OptionChecks.h"
#include "cli/PrintableOutput.h"
#include "dsp/DataError.h"
#include "tracking/RecordedTracks.h"

void addTrackOptions(CLI::App& command, TrackOptions& options) {
  command.add_option("--tracks", options.input,
                     "Instead of a scene: a tracker's messages (JSON) in a file or FIFO, - for "
                     "standard input, or tcp://HOST:PORT, where the tracker connects");
  command
      .add_option_function<std::string>(
          "--track-hop",
          [&options](const std::string& text) {
            try {
              options.settings.hop = Tracking::hopOf(text);
            } catch (const DataError& error) {
              throw CLI::ValidationError("--track-hop", error.what());
            }
          },
          "What a count of \"timeStamp\" is: SAMPLES/RATE or seconds")
      ->default_str("128/16000");
  command
      .add_option("--track-hold", options.settings.hold,
                  "Seconds that a tracker's message stays in force when no other one follows")
      ->check(isPositive())
      ->capture_default_str();
  command
      .add_option("--track-distance", options.settings.distance,
                  "Distance in metres of the directions that a tracker gives")
      ->check(isBetween(1e-3, 1e6))
      ->capture_default_str();
}

bool areLive(const TrackOptions& options, const std::string& recording) {
  std::error_code error;
  return options.isGiven() && !std::filesystem::is_regular_file(recording, error) &&
         !std::filesystem::is_regular_file(options.input, error);
}

Audio::Scene readTracks(const TrackOptions& options) {
  Tracking::TrackInput input(options.input, warn);
  Tracking::TrackCounts counts;
  Audio::Scene scene = Tracking::recordedTracks(input, options.settings, counts);
  reportTracks(options.input, counts);
  return scene;
}

std::unique_ptr<Tracking::LiveTracks> followTracks(const TrackOptions& options) {
  return std::make_unique<Tracking::LiveTracks>(
      std::make_unique<Tracking::TrackInput>(options.input, warn), options.settings);
}

void reportTracks(const std::string& input, const Tracking::TrackCounts& counts,
                  const std::string& failure) {
  const std::string text = counts.text();
  if (!text.empty()) warn(fmt::format("{}: {}", input, text));
  if (!failure.empty()) warn(failure);
}
