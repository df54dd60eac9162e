#include "cli/SeparationInputs.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "cli/PrintableOutput.h"
#include "cli/SeparationWarnings.h"
#include "cli/SeparatorSettings.h"
#include "cli/StopSignals.h"
#include "dsp/DataError.h"
#include "dsp/FrameLayout.h"
#include "dsp/OverlapAdder.h"
#include "responses/DatabaseFile.h"
#include "responses/Places.h"
#include "scene/SceneMoment.h"
#include "separation/ResponseFile.h"
#include "separation/SettingsWindows.h"

namespace {

constexpr int DEFAULT_LENGTH = 512;
constexpr int MAX_LENGTH = 1 << 24;

/// Takes frame length and sampling rate from the database; they must agree with what was asked for.
void takeLengthAndRate(SeparationSettings& s, const SofaFile& database) {
  requireDatabase(database);
  const int length = 2 * (static_cast<int>(database.length()) - 1);
  const int rate = static_cast<int>(std::lround(database.samplingRate()));
  if (s.length != 0 && s.length != length) {
    throw DataError(fmt::format("--length is {}, expected {} samples, for which {} was made",
                                s.length, length, s.database));
  }
  if (s.samplingRate != 0 && s.samplingRate != rate) {
    throw DataError(fmt::format("--rate is {} Hz, expected {} Hz, for which {} was made",
                                s.samplingRate, rate, s.database));
  }
  s.length = length;
  s.samplingRate = rate;
}

/// Opens the recording, or one of its noise.
Audio::AudioReader open(const SeparationSettings& s, const std::string& path,
                        const Audio::AudioReaderOptions& options) {
  Audio::AudioReaderOptions reading = options;
  reading.samplingRate = s.samplingRate;
  reading.resample = s.resample;
  reading.resampleWords = "--resample converts it";
  reading.reportGap = s.length > 0 ? s.length : DEFAULT_LENGTH;
  reading.stopped = [] { return SignalWatch::caught() != 0; };
  if (!reading.warn) reading.warn = warn;
  return Audio::AudioReader(path, reading);
}

Audio::AudioReaderOptions channelsOf(const std::string& option, const std::string& channels) {
  Audio::AudioReaderOptions options;
  options.channels = channels;
  options.channelsName = option;
  return options;
}

Audio::AudioReaderOptions recordingOptions(const SeparationSettings& s) {
  Audio::AudioReaderOptions options = channelsOf("--channels", s.channels);
  if (!s.raw.empty()) options.raw = Audio::parseRawFormat(s.raw, "--raw");
  options.nonFinite = Audio::nonFiniteNamed(s.nonFinite);
  return options;
}

/// Refuses a stream for what reads the recording more than once.
void requireOnePass(const SeparationSettings& s) {
  if (!Audio::AudioReader::isStream(s.recording)) return;
  if (!s.noiseRanges.empty()) {
    throw DataError(fmt::format(
        "--noise-from looks at the whole recording in advance, but {} is a stream, which can be "
        "read once; expected a file, --noise-recording, or \"active\" times with pauses, in which "
        "ML learns the noise",
        s.recording));
  }
  if (s.passes > 1 || s.refinePasses > 0) {
    throw DataError(fmt::format(
        "{} goes through the recording again, but {} is a stream, which can be read once; expected "
        "a file, or --refine-live",
        s.passes > 1 ? "--passes" : "--refine", s.recording));
  }
}

Audio::AudioReader openRecording(SeparationSettings& s) {
  requireOnePass(s);
  const Audio::AudioReaderOptions options = recordingOptions(s);
  Audio::AudioReader reader = open(s, s.recording, options);
  s.samplingRate = reader.samplingRate();
  return reader;
}

void checkReference(const SeparationSettings& s, int microphones) {
  if (s.reference >= 1 && s.reference <= microphones) return;
  throw DataError(fmt::format("--reference-mic is {}, expected 1 to {}, the channels in use of {}",
                              s.reference, microphones, s.recording));
}

/// Fills in what the settings leave open of the frames. With --latency MS so many samples of a
/// frame become sound as last that long, and frames follow each other after half of them.
void chooseFrames(SeparationSettings& s) {
  const bool isFree = s.length == 0;  // neither chosen nor the database's
  if (isFree) s.length = DEFAULT_LENGTH;
  if (s.latencyInMs > 0.0) {
    const double samples = s.latencyInMs * s.samplingRate / 1000.0 + 1e-6;
    if (isFree && samples < MAX_LENGTH) s.length = std::max(s.length, static_cast<int>(samples));
    if (samples < 2.0 || samples >= s.length + 1.0) {
      throw DataError(fmt::format(
          "--latency is {} ms, expected {:.3g} to {:.3g} ms: 2 to {} samples, a frame",
          s.latencyInMs, 2000.0 / s.samplingRate, 1000.0 * s.length / s.samplingRate, s.length));
    }
    const int latency = static_cast<int>(samples);
    if (latency < s.length) s.latency = latency;  // else the usual frames do, and do better
  }
  const int advance = s.latency > 0 ? s.latency / 2 : s.length / 4;
  if (s.advance == 0) s.advance = std::max(1, advance);
}

/// Refuses what makes no frames, or frames that lose samples.
void checkFrames(const SeparationSettings& s, int microphones) {
  try {
    Separation::checkedSettings(separatorSettings(s), microphones);
  } catch (const Separation::SettingError& error) {
    throw DataError(refusalOf(error));
  }
  const Separation::Settings settings = separatorSettings(s);
  try {
    const Audio::FrameSynthesizer check({s.length, s.advance}, windowsOf(settings), false);
  } catch (const DataError&) {  // speaks of a node's parameters
    throw DataError(fmt::format(
        "--advance is {}, with which {} loses samples between the frames of {} samples; "
        "expected {} or less",
        s.advance, s.latency > 0 ? "--latency" : "--window " + s.window, settings.outputLength(),
        settings.outputLength() / 2));
  }
}

/// Whether a frame lies wholly within a range of times and within the recording, but for rounding.
bool holdsFrame(const SeparationSettings& s, const Audio::TimeRange& range, std::int64_t samples) {
  const Audio::FrameLayout layout(s.length, s.advance);
  const double begin = std::max(0.0, range.begin * s.samplingRate - 1e-3);
  const double end = std::min(static_cast<double>(samples), range.end * s.samplingRate + 1e-3);
  if (end - begin < s.length) return false;
  const auto frame = static_cast<std::int64_t>(std::ceil((begin + s.length) / s.advance)) - 1;
  return static_cast<double>(layout.start(frame) + s.length) <= end;
}

/// Refuses times of noise that the recording does not have, or that hold no frame.
void checkNoiseRanges(const SeparationSettings& s, const SeparationInputs& inputs) {
  if (s.noiseRanges.empty() || !inputs.samples) return;
  const double duration = static_cast<double>(*inputs.samples) / s.samplingRate;
  const std::vector<Audio::TimeRange> ranges = Audio::parseTimeRanges(s.noiseRanges);
  if (std::none_of(ranges.begin(), ranges.end(), [&](const Audio::TimeRange& range) {
        return range.begin >= duration || holdsFrame(s, range, *inputs.samples);
      })) {
    throw DataError(
        fmt::format("--noise-from holds no whole frame of {} samples ({:.4f} s) of {}, expected a "
                    "longer time",
                    s.length, static_cast<double>(s.length) / s.samplingRate, s.recording));
  }
  for (const Audio::TimeRange& range : ranges) {
    if (range.begin < duration) continue;
    throw DataError(
        fmt::format("--noise-from has {}:{} s, expected times within {}, which lasts {:.2f} s",
                    range.begin, range.end, s.recording, duration));
  }
}

/// The recording of noise alone, which has as many channels as the recording.
std::optional<Audio::AudioReader> openNoise(const SeparationSettings& s, int microphones) {
  if (s.noiseRecording.empty()) return std::nullopt;
  Audio::AudioReader reader =
      open(s, s.noiseRecording,
           s.noiseChannels.empty() ? channelsOf("--channels", s.channels)
                                   : channelsOf("--noise-channels", s.noiseChannels));
  if (reader.channelCount() != microphones) {
    throw DataError(
        fmt::format("--noise-recording: {} gives {} channels, expected {} as {} (--noise-channels "
                    "selects)",
                    s.noiseRecording, reader.channelCount(), microphones, s.recording));
  }
  return reader;
}

/// noiseOptions: those that say where the noise comes from.
void checkScene(const SeparationSettings& s, const Audio::Scene& scene,
                const std::string& noiseOptions) {
  scene.requireFewAtOnce(s.sceneName(), s.inactiveAsNoise);
  if (scene.sources().empty()) {
    throw DataError(fmt::format("{}: /sources: found none, expected one or more", s.sceneName()));
  }
  const bool noiseIsRunning =
      s.method->nodeType == "ML" && s.noiseRanges.empty() && s.noiseRecording.empty();
  const bool hasPauses = std::none_of(scene.sources().begin(), scene.sources().end(),
                                      [](const auto& source) { return source.always; });
  if (noiseIsRunning && !hasPauses) {
    throw DataError(fmt::format(
        "{}: found a source that is always active, but ML learns the noise while none is; expected "
        "\"active\" times, or {}",
        s.sceneName(), noiseOptions));
  }
}

/// Refuses a recording with other channels than a file has microphones.
void requireChannels(const SeparationSettings& s, int microphones, const SofaFile* file) {
  if (!file || file->receivers() == static_cast<std::size_t>(microphones)) return;
  throw DataError(fmt::format(
      "{}: gives {} channels, expected {}, a channel for each microphone of {} (--channels "
      "selects)",
      s.recording, microphones, file->receivers(), file->path()));
}

/// The files that say what to separate by.
struct Model {
  /// Takes frame length and rate from the database, where the settings leave them open.
  Model(SeparationSettings& s, std::string optionsOfNoise)
      : noiseOptions(std::move(optionsOfNoise)) {
    if (!s.tracks.isGiven()) {
      scene = Audio::readScene(s.scene);
      checkScene(s, scene, noiseOptions);
    }
    if (s.method->needsDatabase()) takeLengthAndRate(s, database.emplace(s.database));
    if (s.method->needsResponses()) responses.emplace(s.responses, SofaFile::Part::HEAD);
  }

  /// The file that says how many microphones there are; null without one.
  const SofaFile* file() const { return database ? &*database : responses ? &*responses : nullptr; }

  std::string noiseOptions;  // as of checkScene
  Audio::Scene scene;        // empty with a tracker
  std::optional<SofaFile> database;
  std::optional<SofaFile> responses;
};

/// After the recording was opened, so that nobody waits for a tracker in vain.
void openTracks(const SeparationSettings& s, const std::string& noiseOptions,
                SeparationInputs& inputs) {
  if (!s.tracks.isGiven()) return;
  if (areLive(s.tracks, s.recording)) {
    inputs.live = followTracks(s.tracks);
  } else {
    inputs.scene = readTracks(s.tracks);
    checkScene(s, inputs.scene, noiseOptions);
  }
}

/// All but the recording itself, checked against each other.
SeparationInputs inputsOf(const SeparationSettings& s, Model& model, int microphones,
                          std::optional<std::int64_t> samples) {
  SeparationInputs inputs{.scene = std::move(model.scene)};
  inputs.microphones = microphones;
  inputs.samples = samples;
  checkReference(s, microphones);
  checkFrames(s, microphones);
  inputs.noise = openNoise(s, microphones);
  checkNoiseRanges(s, inputs);
  requireChannels(s, microphones, model.file());
  openTracks(s, model.noiseOptions, inputs);
  const SofaFile* const database = model.database ? &*model.database : nullptr;
  SeparationPlan plan{s, inputs.scene, microphones, std::nullopt, database};
  if (samples) plan.duration = static_cast<double>(*samples) / s.samplingRate;
  inputs.notes = nearestResponses(plan);
  inputs.warnings = separationWarnings(plan);
  if (database) inputs.database = databaseOf(*database);
  if (model.responses) inputs.responses = readImpulseResponses(s.responses, s.samplingRate);
  return inputs;
}

}  // namespace

SeparationInputs openInputs(SeparationSettings& s) {
  Model model(s, "--noise-from or --noise-recording");
  Audio::AudioReader recording = openRecording(s);
  chooseFrames(s);
  SeparationInputs inputs =
      inputsOf(s, model, recording.channelCount(), recording.announcedSamples());
  inputs.recording = std::move(recording);
  return inputs;
}

SeparationInputs openInputs(SeparationSettings& s, const LiveSound& sound) {
  Model model(s, "--noise-recording");
  if (s.samplingRate != 0 && s.samplingRate != sound.samplingRate) {
    throw DataError(fmt::format("{}: runs at {} Hz, expected {} Hz, for which {} was made",
                                s.recording, sound.samplingRate, s.samplingRate, s.database));
  }
  s.samplingRate = sound.samplingRate;
  chooseFrames(s);
  int microphones = sound.channels;
  if (microphones == 0 && model.file()) microphones = static_cast<int>(model.file()->receivers());
  if (microphones == 0) {
    throw DataError("--channels is missing: nothing else says how many microphones there are");
  }
  return inputsOf(s, model, microphones, std::nullopt);
}

Audio::AudioReader openAgain(const SeparationSettings& s) {
  Audio::AudioReaderOptions options = recordingOptions(s);
  options.warn = [](const std::string&) {};  // as it is said once already
  return open(s, s.recording, options);
}

std::vector<BF::SourceLocation> sourcesOf(const SeparationInputs& inputs, double time,
                                          bool inactiveAsNoise) {
  if (!inputs.live) return sourcesAt(inputs.scene, time, inactiveAsNoise);
  const auto [targets, noise] = inputs.live->at(Tracking::LiveTracks::Clock::now());
  return asSeparated(targets, noise);
}
