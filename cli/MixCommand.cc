#include "cli/MixCommand.h"

#include <fmt/format.h>

#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "audio/OutputFile.h"
#include "audio/SignalFile.h"
#include "cli/MixFiles.h"
#include "cli/OptionChecks.h"
#include "cli/OutputCheck.h"
#include "cli/RoomOptions.h"
#include "cli/SceneOptions.h"
#include "dsp/DataError.h"
#include "dsp/Decibels.h"
#include "responses/MixNoise.h"
#include "responses/MixRenderer.h"
#include "responses/ResponseSet.h"
#include "responses/Room.h"
#include "scene/Scene.h"

namespace {

// From here on a person should know that the measured positions do not cover the scene.
constexpr double NOTED_DEVIATION = 5.0;  // degrees

constexpr double LATEST_BEGIN = 86400.0;  // seconds
constexpr int MAX_RATE = 1'000'000;       // Hz
constexpr int MAX_CHANNEL = 1024;

struct MixOptions {
  Audio::SceneChoice scene;
  std::string responses;
  std::vector<std::string> dry;
  std::string output;
  int channel = 1;
  int rawRate = 0;  // 0: the dry files have headers
  bool resample = false;
  std::vector<double> gains;  // dB; empty: 0 for all
  std::optional<double> noiseLevel;
  std::optional<double> diffuseLevel;
  Reverberation reverberation;
  RoomDescription room;
  const CLI::Option* roomGiven = nullptr;
  bool byDirection = false;
  unsigned seed = 1;
  bool force = false;
};

/// A source of the scene, what it emits and where its image goes.
struct MixSource {
  Audio::SceneSource place;
  std::string dry;
  double gain;  // factor
  std::string imagePath;
};

/// "mix.wav" and "source3" make "mix-source3.wav".
std::string besideOutput(const std::string& output, const std::string& suffix) {
  std::filesystem::path path(output);
  path.replace_filename(path.stem().string() + "-" + suffix + ".wav");
  return path.string();
}

/// The scene's sources and then its noise sources, each with its dry file.
std::vector<MixSource> sourcesOf(const Audio::Scene& scene, const MixOptions& options) {
  std::vector<MixSource> result;
  const auto add = [&](const Audio::SceneSource& source, const char* kind) {
    for (const Audio::TimeRange& range : source.active) {
      if (range.begin <= LATEST_BEGIN) continue;
      throw DataError(fmt::format("{}: source {} is active from {} s on, expected {} s at most",
                                  options.scene.name(), source.id, range.begin, LATEST_BEGIN));
    }
    result.push_back(
        {source, "", 1.0, besideOutput(options.output, fmt::format("{}{}", kind, source.id))});
  };
  for (const Audio::SceneSource& source : scene.sources()) add(source, "source");
  for (const Audio::SceneSource& source : scene.noiseSources()) add(source, "noise");
  if (options.dry.size() != result.size()) {
    throw CLI::ValidationError(
        "--dry", fmt::format("{} given, expected {}: one for each of the {} sources and {} noise "
                             "sources in {}",
                             options.dry.size(), result.size(), scene.sources().size(),
                             scene.noiseSources().size(), options.scene.name()));
  }
  for (std::size_t i = 0; i < result.size(); ++i) {
    result[i].dry = options.dry[i];
    if (!options.gains.empty()) result[i].gain = Audio::amplitudeRatio(options.gains[i]);
  }
  return result;
}

/// A dry file's samples at the rate of the responses, times the source's gain.
std::vector<float> readDry(const MixSource& source, const MixOptions& options, int rate) {
  Signal signal = options.rawRate > 0 ? readRawSignal(source.dry, options.rawRate)
                                      : readSignal(source.dry, options.channel);
  if (signal.samplingRate != rate) {
    if (!options.resample) {
      throw DataError(
          fmt::format("{}: the sampling rate is {} Hz, expected {} Hz as in {} (--resample "
                      "converts it)",
                      source.dry, signal.samplingRate, rate, options.responses));
    }
    signal = resampled(signal, rate, source.dry);
  }
  for (float& sample : signal.samples) {
    sample = static_cast<float>(source.gain * static_cast<double>(sample));
  }
  return signal.samples;
}

void note(const std::string& text) { std::cerr << "zelk-sss: " << text << std::endl; }

void mix(const MixOptions& options) {
  if (std::filesystem::path(options.output).extension() != ".wav") {
    throw CLI::ValidationError(
        "--output", fmt::format("\"{}\", expected a name that ends in .wav", options.output));
  }
  if (!options.gains.empty() && options.gains.size() != options.dry.size()) {
    throw CLI::ValidationError("--gain",
                               fmt::format("{} given, expected as many as there are dry files, {}",
                                           options.gains.size(), options.dry.size()));
  }
  const std::vector<MixSource> sources = sourcesOf(Audio::readScene(options.scene), options);
  const std::string noisePath = besideOutput(options.output, "microphone-noise");
  const std::string diffusePath = besideOutput(options.output, "diffuse-noise");
  std::vector<std::string> outputs = {options.output};
  for (const MixSource& source : sources) outputs.push_back(source.imagePath);
  if (options.noiseLevel) outputs.push_back(noisePath);
  if (options.diffuseLevel) outputs.push_back(diffusePath);
  std::vector<std::string> inputs = options.dry;
  inputs.insert(inputs.end(), {options.scene.file, options.responses});
  for (const std::string& output : outputs) checkOutput(output, options.force, inputs);

  Reverberation reverberation = options.reverberation;
  reverberation.seed = options.seed;
  const ResponseSet responses(options.responses, reverberation);
  std::optional<Room> room;
  std::optional<RoomResponses> inRoom;
  if (*options.roomGiven) {
    RoomDescription description = options.room;
    description.seed = options.seed;
    room.emplace(description, responses.samplingRate());
    if (options.byDirection) {
      inRoom.emplace(*room, responses);
    } else {
      inRoom.emplace(*room, responses.microphonePositions());
    }
    note(room->text());
  }
  const Responses& heard = inRoom ? static_cast<const Responses&>(*inRoom) : responses;
  const MixRenderer renderer(heard);
  MixFiles files(responses.microphones(), responses.samplingRate(), options.force);
  if (responses.referenceMicrophone() > 0 && !inRoom) {
    note(fmt::format(
        "{}: the responses are relative to microphone {}: the sources sound as if nothing were "
        "between it and them; expected a database made with --reference-mic none",
        options.responses, responses.referenceMicrophone()));
  }
  if (responses.leadIn() > 0 && !inRoom) {
    note(fmt::format("{}: the responses reach before time 0; all images are {} samples late",
                     options.responses, responses.leadIn()));
  }
  for (const MixSource& source : sources) {
    const std::vector<float> dry = readDry(source, options, responses.samplingRate());
    const double deviation = renderer.largestDeviation(source.place, dry.size());
    if (deviation > NOTED_DEVIATION) {
      note(fmt::format("{}: source {} is up to {:.1f} degrees from the nearest position in {}",
                       options.scene.name(), source.place.id, deviation, options.responses));
    }
    files.add(source.imagePath, renderer.render(source.place, dry).samples);
  }
  if (options.diffuseLevel) {
    files.add(diffusePath,
              diffuseNoise(heard, files.length(), *options.diffuseLevel, options.seed + 1));
  }
  if (options.noiseLevel) {
    const std::size_t values = files.length() * responses.microphones();
    files.add(noisePath, microphoneNoise(values, *options.noiseLevel, options.seed));
  }
  files.finish(options.output);
  if (files.peak() > 1.0F) {
    note(fmt::format(
        "{}: the peak is {:.3f} times full scale, which players and whole-number formats clip: it "
        "fits with {:.1f} dB less, by --gain for the dry files and by the levels of noise",
        options.output, files.peak(), Audio::decibelsOver(files.peak())));
  }
}

}  // namespace

void addMixCommand(CLI::App& app) {
  const auto options = std::make_shared<MixOptions>();
  CLI::App* command = app.add_subcommand(
      "mix", "Render a scene's mixture and each source's image at the microphones");
  command->add_option("scene", options->scene.file, "Scene file (JSON, CSV or RTTM)")->required();
  addSourceOption(*command, options->scene);
  command->add_option("--tf", options->responses, "Responses (SOFA, DataType FIR or TF)")
      ->required();
  command
      ->add_option("--dry", options->dry,
                   "What each source emits: a file for each source, then for each noise source, in "
                   "the scene's order")
      ->required();
  command
      ->add_option("-o,--output", options->output,
                   "Mixture, NAME.wav; the images are NAME-source<ID>.wav and NAME-noise<ID>.wav")
      ->required();
  command
      ->add_option("--channel", options->channel,
                   "Channel to take from dry files of several channels, from 1")
      ->check(isBetween(1, MAX_CHANNEL))
      ->capture_default_str();
  command
      ->add_option("--raw-rate", options->rawRate,
                   "The dry files are headerless 16-bit little-endian mono, of this rate in Hz")
      ->check(isBetween(1, MAX_RATE));
  command->add_flag("--resample", options->resample,
                    "Convert dry files of another sampling rate than the responses'");
  command->add_option("--gain", options->gains, "Gain of each dry file in dB")
      ->check(isBetween(-200.0, 200.0));
  command
      ->add_option(
          "--noise-level", options->noiseLevel,
          "Add independent white noise of this level at each microphone, in dB relative to "
          "full scale (RMS 1)")
      ->check(isBetween(-200.0, 0.0));
  command
      ->add_option("--diffuse-level", options->diffuseLevel,
                   "Add speech-shaped noise from all around of this level, in dB relative to full "
                   "scale (RMS 1)")
      ->check(isBetween(-200.0, 0.0));
  CLI::Option* reverb =
      command
          ->add_option("--reverb", options->reverberation.t60,
                       "Add a late reverberation that falls by 60 dB in this time, in seconds")
          ->check(isBetween(0.0, 5.0));
  command
      ->add_option("--direct-to-reverberant", options->reverberation.directToReverberant,
                   "Energy of a response over that of its reverberation, in dB")
      ->check(isBetween(-40.0, 60.0))
      ->capture_default_str();
  CLI::Option* room = addRoomOptions(*command, options->room);
  room->excludes(reverb);
  options->roomGiven = room;
  command
      ->add_flag(
          "--by-direction", options->byDirection,
          "In the room, the array hears each image with the response measured nearest to its "
          "direction; without it, its microphones stand alone in the air")
      ->needs(room);
  command->add_option("--seed", options->seed, "Start of the noise's random numbers")
      ->capture_default_str();
  addDatabaseLimit(*command);
  command->add_flag("--force", options->force, "Replace existing output files");
  command->callback([options] { mix(*options); });
}
