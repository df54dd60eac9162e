#include "cli/Evaluation.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <optional>

#include "audio/SignalFile.h"
#include "cli/OptionChecks.h"
#include "cli/SeparatorSettings.h"
#include "dsp/DataError.h"
#include "dsp/Decibels.h"
#include "geometry/Direction.h"
#include "responses/DatabaseFile.h"
#include "responses/MixNoise.h"
#include "responses/MixRenderer.h"
#include "responses/Places.h"
#include "responses/RelativeResponses.h"
#include "scene/SceneMoment.h"
#include "separation/Separator.h"

namespace {

using Place = std::array<double, 3>;
using Samples = std::vector<float>;

constexpr int FILTER_TAPS = 512;
constexpr int FREE_FIELD_LENGTH = 512;  // of a database whose length is not told
constexpr unsigned SEED = 1;

/// Where there are no echoes: a hall whose walls reflect nothing, far larger than a scene.
RoomDescription openAir() {
  RoomDescription hall;
  hall.size = {200.0, 200.0, 200.0};
  hall.absorption = {1.0};
  hall.at = {100.0, 100.0, 100.0};
  return hall;
}

/// An array in a room, and what it hears there.
class Site {
 public:
  Site(const EvaluationPlan& plan, const EvaluationPlan::Array& theArray,
       const EvaluationPlan::Room& theRoom)
      : array(theArray) {
    if (!array.responses.empty()) {
      measured.emplace(array.responses);
      if (measured->samplingRate() != plan.rate) {
        throw DataError(fmt::format("{}: the sampling rate is {} Hz, expected the plan's {} Hz",
                                    array.responses, measured->samplingRate(), plan.rate));
      }
    }
    if (theRoom.description || !measured)
      room.emplace(theRoom.description.value_or(openAir()), plan.rate);
  }

  /// Responses that remember no place yet.
  std::unique_ptr<Responses> listener() const {
    if (!room) return std::make_unique<ResponseSet>(*measured);
    if (measured) return std::make_unique<RoomResponses>(*room, *measured);
    return std::make_unique<RoomResponses>(*room, array.microphones);
  }

  Positions microphones() const {
    return measured ? measured->microphonePositions() : array.microphones;
  }

 private:
  const EvaluationPlan::Array& array;
  std::optional<ResponseSet> measured;
  std::optional<Room> room;
};

/// A scene as it sounds at an array, without noise.
struct Rendered {
  const Audio::Scene& scene;
  std::size_t microphones;
  Samples sound;                          ///< all sources, microphones in turn
  std::unique_ptr<ScoreMetrics> metrics;  ///< the images at the first microphone

  std::size_t length() const { return sound.size() / microphones; }
};

std::vector<Audio::SceneSource> allSources(const Audio::Scene& scene) {
  std::vector<Audio::SceneSource> all = scene.sources();
  all.insert(all.end(), scene.noiseSources().begin(), scene.noiseSources().end());
  return all;
}

Rendered render(const Audio::Scene& scene, const Site& site, const std::vector<Samples>& dry) {
  const std::unique_ptr<Responses> responses = site.listener();
  const MixRenderer renderer(*responses);
  Rendered result{scene, responses->microphones(), {}, {}};
  std::vector<Samples> images;
  for (const Audio::SceneSource& source : allSources(scene)) {
    images.push_back(renderer.render(source, dry[images.size()]).samples);
    result.sound.resize(std::max(result.sound.size(), images.back().size()));
  }
  std::vector<NamedSignal> references;
  for (Samples& image : images) {
    image.resize(result.sound.size());
    NamedSignal reference{fmt::format("the image of source {}", references.size()), {}};
    for (std::size_t n = 0; n < image.size(); ++n) {
      result.sound[n] += image[n];
      if (n % result.microphones == 0) reference.samples.push_back(image[n]);
    }
    references.push_back(std::move(reference));
  }
  result.metrics = std::make_unique<ScoreMetrics>(std::move(references), FILTER_TAPS);
  return result;
}

/// The scene's sound in noise.
Samples inNoise(const Rendered& rendered, const Site& site, const EvaluationPlan::Noise& noise) {
  Samples sum = rendered.sound;
  double power = 0.0;
  for (const float x : sum) power += static_cast<double>(x) * x;
  const double level = Audio::decibels(power / static_cast<double>(sum.size()));
  const auto add = [&sum](const Samples& more) {
    for (std::size_t n = 0; n < sum.size(); ++n) sum[n] += more[n];
  };
  if (noise.diffuse) {
    add(diffuseNoise(*site.listener(), rendered.length(), level - *noise.diffuse, SEED + 1));
  }
  if (noise.sensor) add(microphoneNoise(sum.size(), level - *noise.sensor, SEED));
  return sum;
}

/// A point turned about the z axis, counter-clockwise.
Place turned(const Place& p, double degrees) {
  const double angle = BF::radians(degrees);
  return {std::cos(angle) * p[0] - std::sin(angle) * p[1],
          std::sin(angle) * p[0] + std::cos(angle) * p[1], p[2]};
}

/// Where the database has responses for the sources, for each point of their tracks: where the
/// method is told that they are, or half a grid to both sides.
Positions placesOf(const EvaluationPlan::Database& wanted, const Audio::Scene& scene) {
  Positions places;
  for (const Audio::SceneSource& source : allSources(scene)) {
    for (const Audio::TrackPoint& point : source.track) {
      const BF::Location p = source.positionAt(point.t);
      places.push_back(turned({p.x, p.y, p.z}, wanted.error - wanted.grid / 2.0));
      if (wanted.grid == 0.0) continue;
      places.push_back(turned({p.x, p.y, p.z}, wanted.error + wanted.grid / 2.0));
    }
  }
  return places;
}

/// What a method may have of the sources: responses, and the same in the frames' bins.
struct Database {
  SofaImpulseResponses whole;
  SofaTransferFunctions framed;
  double error = 0.0;    ///< degrees
  double latency = 0.0;  ///< ms; 0: the frame

  int length() const { return 2 * (static_cast<int>(framed.frequencies) - 1); }
};

MeasuredResponses measuredOf(const SofaImpulseResponses& responses) {
  const std::size_t M = responses.sourcePositions.size();
  const std::size_t R = responses.receiverPositions.size();
  return {M,
          R,
          responses.samples,
          responses.samplingRate,
          responses.values,
          std::vector<double>(M * R)};
}

Database makeDatabase(const EvaluationPlan& plan, const Site& site, const Audio::Scene& scene,
                      const EvaluationPlan::Database& wanted) {
  const Positions places = placesOf(wanted, scene);
  const Positions microphones = site.microphones();
  Database data{{}, {}, wanted.error, wanted.latency};
  if (wanted.isFreeField) {
    const Room air(openAir(), plan.rate);
    data.whole = impulseResponses(RoomResponses(air, microphones), microphones, places);
    const int length = wanted.length > 0 ? wanted.length : FREE_FIELD_LENGTH;
    data.framed = freeFieldResponses(microphones, places, {plan.rate, length});
  } else {
    ImportReport unused;
    data.whole = impulseResponses(*site.listener(), microphones, places);
    data.framed = importResponses(measuredOf(data.whole), "the responses",
                                  {plan.rate, wanted.length}, unused);
    data.framed.sourcePositions = data.whole.sourcePositions;
    data.framed.receiverPositions = data.whole.receiverPositions;
  }
  if (wanted.reference > 0) makeRelative(data.framed, wanted.reference);
  return data;
}

/// Who is active at a time, where the method is told that they are.
std::vector<BF::SourceLocation> listTold(const Audio::Scene& scene, double time, double error) {
  std::vector<BF::SourceLocation> list;
  const auto add = [&](const Audio::PlacedSource& source, bool isTarget) {
    const Place p = turned({source.position.x, source.position.y, source.position.z}, error);
    list.push_back(asSeparated({p[0], p[1], p[2]}, source.id, isTarget));
  };
  for (const Audio::PlacedSource& source : scene.targetsAt(time)) add(source, true);
  for (const Audio::PlacedSource& source : scene.noiseAt(time, false)) add(source, false);
  return list;
}

/// The targets that a separator gives, in the scene's order, each as long as the recording.
std::vector<Samples> separate(Separation::Separator& separator, const Audio::Scene& scene,
                              const Samples& recording, double error) {
  const auto microphones = static_cast<std::size_t>(separator.microphones());
  const std::size_t length = recording.size() / microphones;
  std::map<int, Samples> separated;
  const auto keep = [&separated](const Separation::Output& output) {
    for (const auto& [id, samples] : output.signals) {
      separated[id].resize(static_cast<std::size_t>(output.start));
      separated[id].insert(separated[id].end(), samples.begin(), samples.end());
    }
  };
  const auto block = static_cast<std::size_t>(separator.settings().advance);
  const double rate = separator.settings().samplingRate;
  for (int pass = 1; pass <= separator.passes(); ++pass) {
    if (pass > 1) separator.startOver();
    for (std::size_t n = 0; n < length; n += block) {
      separator.setSources(listTold(scene, static_cast<double>(n) / rate, error));
      keep(separator.push(recording.data() + n * microphones, std::min(block, length - n)));
    }
    keep(separator.flush());
  }
  std::vector<Samples> targets;
  for (const Audio::SceneSource& source : scene.sources()) {
    targets.push_back(std::move(separated[source.id]));
    targets.back().resize(length);
  }
  return targets;
}

Separation::Settings settingsFor(const EvaluatedMethod& wanted, int rate, const Database& data) {
  Separation::Settings settings = separatorSettings(wanted.settings);
  settings.samplingRate = rate;
  settings.length = data.length();
  settings.advance = settings.length / 4;
  const int latency = static_cast<int>(data.latency * rate / 1000.0 + 1e-6);
  if (data.latency > 0.0 && latency < settings.length) {
    settings.latency = latency;
    settings.advance = latency / 2;
  }
  settings.inactiveAsNoise = wanted.settings.inactiveAsNoise;
  if (!wanted.settings.noiseRanges.empty()) {
    for (const Audio::TimeRange& range : timeRangesOf(wanted.settings.noiseRanges)) {
      settings.noise.times.emplace_back(range.begin, range.end);
    }
  }
  return settings;
}

/// The separator of a method; those without a database take its frames and microphones alone.
Separation::Separator separatorFor(const EvaluatedMethod& wanted, int rate, const Database& data) {
  const Separation::Settings settings = settingsFor(wanted, rate, data);
  if (wanted.method().needsDatabase()) return {settings, databaseOf(data.framed)};
  if (!wanted.method().needsResponses()) {
    return {settings, static_cast<int>(data.framed.receiverPositions.size())};
  }
  return {settings, Separation::ImpulseResponses{sourcesAsSeparated(data.whole.sourcePositions),
                                                 data.whole.receiverPositions.size(),
                                                 data.whole.samples, rate, data.whole.values}};
}

class Evaluator {
 public:
  Evaluator(const EvaluationPlan& thePlan, const std::vector<EvaluatedMethod>& theMethods,
            const std::function<void(const EvaluationRow&)>& whenFinished)
      : plan(thePlan), methods(theMethods), finished(whenFinished) {
    for (const std::string& path : plan.dry) {
      const Signal signal = readSignal(path, 1);
      dry.push_back(signal.samplingRate == plan.rate ? signal.samples
                                                     : resampled(signal, plan.rate, path).samples);
    }
  }

  std::vector<EvaluationRow> run() {
    for (const EvaluationPlan::Room& room : plan.rooms) {
      for (const EvaluationPlan::Array& array : plan.arrays) runAt(room, array);
    }
    return std::move(rows);
  }

 private:
  void runAt(const EvaluationPlan::Room& room, const EvaluationPlan::Array& array) {
    const Site site(plan, array, room);
    std::vector<Rendered> scenes;
    for (const Audio::Scene& scene : plan.scenes) scenes.push_back(render(scene, site, dry));
    // By scene and database; methods without one take the first one's frames.
    std::vector<std::vector<Database>> databases(plan.databases.size());
    for (std::size_t d = 0; d < plan.databases.size(); ++d) {
      for (const Audio::Scene& scene : plan.scenes) {
        databases[d].push_back(makeDatabase(plan, site, scene, plan.databases[d]));
      }
    }
    for (const EvaluationPlan::Noise& noise : plan.noises) {
      std::vector<Samples> mixtures;
      mixtures.reserve(scenes.size());
      for (const Rendered& rendered : scenes) mixtures.push_back(inNoise(rendered, site, noise));
      for (std::size_t d = 0; d < plan.databases.size(); ++d) {
        for (const EvaluatedMethod& method : methods) {
          if (!method.isInformed() && d > 0) continue;
          EvaluationRow row{room.name,   array.name,
                            noise.name,  method.isInformed() ? plan.databases[d].name : "",
                            method.name, {}};
          for (std::size_t s = 0; s < scenes.size(); ++s) {
            Separation::Separator separator = separatorFor(method, plan.rate, databases[d][s]);
            const std::vector<Samples> targets =
                separate(separator, scenes[s].scene, mixtures[s], databases[d][s].error);
            for (std::size_t i = 0; i < targets.size(); ++i) {
              row.scores.push_back(scoreOf(scenes[s], targets[i], i));
            }
          }
          finished(row);
          rows.push_back(std::move(row));
        }
      }
    }
  }

  static SourceScore scoreOf(const Rendered& rendered, const Samples& estimate, std::size_t i) {
    constexpr double NOTHING = -std::numeric_limits<double>::infinity();
    if (std::all_of(estimate.begin(), estimate.end(), [](float x) { return x == 0.0F; })) {
      return {NOTHING, NOTHING, NOTHING};
    }
    return rendered.metrics->score({"a separated source", {estimate.begin(), estimate.end()}}, i);
  }

  const EvaluationPlan& plan;
  const std::vector<EvaluatedMethod>& methods;
  const std::function<void(const EvaluationRow&)>& finished;
  std::vector<Samples> dry;
  std::vector<EvaluationRow> rows;
};

}  // namespace

std::vector<EvaluationRow> evaluate(const EvaluationPlan& plan,
                                    const std::vector<EvaluatedMethod>& methods,
                                    const std::function<void(const EvaluationRow&)>& finished) {
  return Evaluator(plan, methods, finished).run();
}
