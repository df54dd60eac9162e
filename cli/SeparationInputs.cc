#include "cli/SeparationInputs.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "audio/AudioReader.h"
#include "audio/Channels.h"
#include "dsp/AudioError.h"
#include "dsp/FrameLayout.h"
#include "responses/DatabaseFile.h"
#include "responses/Places.h"
#include "responses/ResponseImport.h"

namespace {

constexpr int DEFAULT_LENGTH = 512;

/// A source further than this from the nearest response is separated badly.
constexpr double WIDE_ANGLE = 10.0;  // degrees

double degrees(double radians) { return radians * 180.0 / std::numbers::pi; }

/// As the directions of a scene file.
std::string directionOf(const Audio::Position& p) {
  return fmt::format("azimuth {:.1f}, elevation {:.1f}, {:.2f} m", degrees(std::atan2(p.y, p.x)),
                     degrees(std::atan2(p.z, std::hypot(p.x, p.y))), std::hypot(p.x, p.y, p.z));
}

/// Takes frame length and sampling rate from the database; they must agree with what was asked for.
void takeLengthAndRate(SeparationSettings& s, const SofaFile& database) {
  requireDatabase(database);
  const int length = 2 * (static_cast<int>(database.length()) - 1);
  const int rate = static_cast<int>(std::lround(database.samplingRate()));
  if (s.length != 0 && s.length != length) {
    throw SofaError(fmt::format("--length is {}, expected {} samples, for which {} was made",
                                s.length, length, s.database));
  }
  if (s.samplingRate != 0 && s.samplingRate != rate) {
    throw SofaError(fmt::format("--rate is {} Hz, expected {} Hz, for which {} was made",
                                s.samplingRate, rate, s.database));
  }
  s.length = length;
  s.samplingRate = rate;
}

/// Takes the recording's length, and its sampling rate where nothing else gave one. Returns how
/// many microphones it has.
int examineRecording(SeparationSettings& s, SeparationInputs& inputs) {
  Audio::AudioReaderOptions reading;
  reading.channels = s.channels;
  reading.warn = [](const std::string&) {};  // the network will warn
  const Audio::AudioReader reader(s.recording, reading);
  const int rate = reader.samplingRate();
  if (s.samplingRate == 0) s.samplingRate = rate;
  if (rate != s.samplingRate && !s.resample) {
    throw Audio::AudioError(
        fmt::format("{}: the sampling rate is {} Hz, expected {} Hz (--resample converts it)",
                    s.recording, rate, s.samplingRate));
  }
  if (s.reference < 1 || s.reference > reader.channelCount()) {
    throw Audio::AudioError(
        fmt::format("--reference-mic is {}, expected 1 to {}, the channels in use of {}",
                    s.reference, reader.channelCount(), s.recording));
  }
  if (const auto samples = reader.announcedSamples()) {
    inputs.samples = *samples * s.samplingRate / rate;
  }
  return reader.channelCount();
}

/// Refuses times of noise that the recording does not have.
void checkNoiseRanges(const SeparationSettings& s, const SeparationInputs& inputs) {
  if (s.noiseRanges.empty() || !inputs.samples) return;
  const double duration = static_cast<double>(*inputs.samples) / s.samplingRate;
  for (const Audio::TimeRange& range : Audio::parseTimeRanges(s.noiseRanges)) {
    if (range.begin < duration) continue;
    throw Audio::AudioError(
        fmt::format("--noise-from has {}:{} s, expected times within {}, which lasts {:.2f} s",
                    range.begin, range.end, s.recording, duration));
  }
}

std::vector<Audio::SceneSource> allSources(const Audio::Scene& scene) {
  std::vector<Audio::SceneSource> all = scene.sources();
  all.insert(all.end(), scene.noiseSources().begin(), scene.noiseSources().end());
  return all;
}

/// Warns of a database whose frames are shorter than its responses.
void checkFrameShare(const SeparationSettings& s, const SofaFile& database,
                     SeparationInputs& inputs) {
  const double share = database.energyInFrame().value_or(1.0);
  if (share >= ENOUGH_ENERGY) return;
  inputs.warnings.push_back(fmt::format(
      "{}: its frames of {} samples hold {} of the responses' energy, expected {} or more: sources "
      "leak into each other by the rest (zelk-sss tfdb import without --length chooses longer "
      "ones)",
      s.database, s.length, percentText(share), percentText(ENOUGH_ENERGY)));
}

/// Notes which response serves each source, and warns where none is near.
void compareWithDatabase(const SeparationSettings& s, const SofaFile& database,
                         SeparationInputs& inputs) {
  for (const Audio::SceneSource& source : allSources(inputs.scene)) {
    for (const Audio::TrackPoint& point : source.track) {
      const Audio::Position wanted = source.positionAt(point.t);
      const Audio::Position found = placeOf(database, nearestSource(database, wanted));
      const double angle = angleBetween(wanted, found);
      if (source.track.size() == 1) {
        inputs.notes.push_back(fmt::format("source {} at {}: nearest response at {}", source.id,
                                           directionOf(wanted), directionOf(found)));
      }
      if (angle <= WIDE_ANGLE) continue;
      inputs.warnings.push_back(fmt::format(
          "{}: source {} at {}: the nearest response in {} is {:.0f} degrees away, at {}; expected "
          "one within {:.0f} degrees",
          s.scene, source.id, directionOf(wanted), s.database, angle, directionOf(found),
          WIDE_ANGLE));
    }
  }
}

/// Warns when more sources are active at once than microphones can keep apart.
void countSources(const SeparationSettings& s, int microphones, SeparationInputs& inputs) {
  const std::vector<Audio::SceneSource> sources = allSources(inputs.scene);
  std::vector<double> begins = {0.0};
  for (const Audio::SceneSource& source : sources) {
    for (const Audio::TimeRange& range : source.active) {
      begins.push_back(std::max(0.0, range.begin));
    }
  }
  std::sort(begins.begin(), begins.end());
  for (const double t : begins) {
    const auto active = std::count_if(sources.begin(), sources.end(),
                                      [t](const auto& source) { return source.isActive(t); });
    if (active <= microphones) continue;
    inputs.warnings.push_back(fmt::format(
        "{}: {} sources are active at {:.2f} s, expected no more than the {} microphones, which "
        "cannot keep more apart",
        s.scene, active, t, microphones));
    return;
  }
}

/// Warns of sources that the recording is too short for.
void findAbsentSources(const SeparationSettings& s, SeparationInputs& inputs) {
  if (!inputs.samples) return;
  const double duration = static_cast<double>(*inputs.samples) / s.samplingRate;
  for (const Audio::SceneSource& source : inputs.scene.sources()) {
    const bool sounds = std::any_of(
        source.active.begin(), source.active.end(),
        [duration](const auto& range) { return range.begin < duration && range.end > 0.0; });
    if (source.always || sounds) continue;
    inputs.warnings.push_back(fmt::format(
        "{}: source {} is never active in the {:.2f} s of {}, expected \"active\" times "
        "within them; it gets no file",
        s.scene, source.id, duration, s.recording));
  }
}

void checkScene(const SeparationSettings& s, const Audio::Scene& scene) {
  if (scene.sources().empty()) {
    throw Audio::AudioError(fmt::format("{}: /sources: found none, expected one or more", s.scene));
  }
  const bool noiseIsRunning =
      s.method->nodeType == "ML" && s.noiseRanges.empty() && s.noiseRecording.empty();
  const bool hasPauses = std::none_of(scene.sources().begin(), scene.sources().end(),
                                      [](const auto& source) { return source.always; });
  if (noiseIsRunning && !hasPauses) {
    throw Audio::AudioError(fmt::format(
        "{}: found a source that is always active, but ML learns the noise while none is; expected "
        "\"active\" times, or --noise-from or --noise-recording",
        s.scene));
  }
}

}  // namespace

SeparationInputs examineInputs(SeparationSettings& s) {
  SeparationInputs inputs;
  inputs.scene = Audio::Scene::read(s.scene);
  checkScene(s, inputs.scene);
  std::optional<SofaFile> database;
  if (s.method->needsDatabase()) takeLengthAndRate(s, database.emplace(s.database));
  if (s.length == 0) s.length = DEFAULT_LENGTH;
  if (s.advance == 0) s.advance = std::max(1, s.length / 4);
  Audio::FrameLayout(s.length, s.advance);  // refuses what makes no frames

  const int microphones = examineRecording(s, inputs);
  checkNoiseRanges(s, inputs);
  countSources(s, microphones, inputs);
  findAbsentSources(s, inputs);
  if (!database) return inputs;
  if (database->receivers() != static_cast<std::size_t>(microphones)) {
    throw Audio::AudioError(fmt::format(
        "{}: gives {} channels, expected {}, a channel for each microphone of {} (--channels "
        "selects)",
        s.recording, microphones, database->receivers(), s.database));
  }
  checkFrameShare(s, *database, inputs);
  compareWithDatabase(s, *database, inputs);
  return inputs;
}
