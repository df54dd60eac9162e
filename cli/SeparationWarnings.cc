#include "cli/SeparationWarnings.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <set>
#include <utility>

#include "cli/OptionChecks.h"
#include "geometry/Direction.h"
#include "responses/Places.h"
#include "responses/ResponseImport.h"
#include "separation/SteeringCondition.h"

namespace {

/// A source further than this from the nearest response is separated badly.
constexpr double WIDE_ANGLE = 10.0;  // degrees

/// How often moving sources are looked at, and at how many changes of who is active, at most.
constexpr std::size_t MAX_MOMENTS = 1000;

/// From here on a separation raises noise by up to 40 dB.
constexpr double MAX_CONDITION = 100.0;
/// Below it small arrays tell no directions apart, and speech has no sound.
constexpr double MIN_FREQUENCY = 100.0;  // Hz
/// What is narrower is hardly heard.
constexpr double MIN_BANDWIDTH = 100.0;  // Hz
/// How many different lists of sources are examined: each costs a decomposition per bin.
constexpr std::size_t MAX_LISTS = 16;

constexpr std::size_t MAX_IDS = 8;

using Warnings = std::vector<std::string>;

/// As the directions of a scene file.
std::string directionText(const BF::Location& p) {
  const BF::Direction d = BF::directionOf(p);
  return fmt::format("azimuth {:.1f}, elevation {:.1f}, {:.2f} m", d.azimuth, d.elevation,
                     d.distance);
}

/// "source 3", "sources 3, 4", or the first of many.
std::string named(std::vector<int> ids) {
  const char* const kind = ids.size() == 1 ? "source" : "sources";
  const bool areMany = ids.size() > MAX_IDS;
  if (areMany) ids.resize(MAX_IDS);
  return fmt::format("{} {}{}", kind, fmt::join(ids, ", "), areMany ? " …" : "");
}

std::vector<Audio::SceneSource> allSources(const Audio::Scene& scene) {
  std::vector<Audio::SceneSource> all = scene.sources();
  all.insert(all.end(), scene.noiseSources().begin(), scene.noiseSources().end());
  return all;
}

// ---- what follows from scene and settings

/// Warns when more sources are active at once than microphones can keep apart.
void countSources(const SeparationPlan& plan, Warnings& warnings) {
  const std::vector<Audio::SceneCrowd> crowds = plan.scene.crowds();
  const auto found = std::find_if(crowds.begin(), crowds.end(), [&](const auto& crowd) {
    return crowd.active > static_cast<std::size_t>(plan.microphones);
  });
  if (found == crowds.end()) return;
  warnings.push_back(fmt::format(
      "{}: {} sources are active at {:.2f} s, expected no more than the {} microphones, which "
      "cannot keep more apart",
      plan.settings.sceneName(), found->active, found->time, plan.microphones));
}

/// Warns of sources that the recording is too short for.
void findAbsentSources(const SeparationPlan& plan, Warnings& warnings) {
  if (!plan.duration) return;
  for (const Audio::SceneSource& source : plan.scene.sources()) {
    const bool sounds = std::any_of(
        source.active.begin(), source.active.end(),
        [&](const auto& range) { return range.begin < *plan.duration && range.end > 0.0; });
    if (source.always || sounds) continue;
    warnings.push_back(
        fmt::format("{}: source {} is never active in the {:.2f} s of {}, expected \"active\" "
                    "times within them; it gets no file",
                    plan.settings.sceneName(), source.id, *plan.duration, plan.settings.recording));
  }
}

/// Warns of frames whose windows leave gaps that an output which changes makes heard.
void checkOverlap(const SeparationPlan& plan, Warnings& warnings) {
  const SeparationSettings& s = plan.settings;
  if (s.advance <= s.outputLength() / 2) return;
  warnings.push_back(fmt::format(
      "--advance is {}, more than half of the {} samples of a frame: the frames overlap too little "
      "to hide their edges; expected {} or less",
      s.advance, s.outputLength(), s.outputLength() / 2));
}

/// Warns of noise to be learnt from times in which targets sound.
void checkNoiseTimes(const SeparationPlan& plan, Warnings& warnings) {
  const SeparationSettings& s = plan.settings;
  if (s.noiseRanges.empty()) return;
  std::vector<int> heard;
  const std::vector<Audio::TimeRange> ranges = timeRangesOf(s.noiseRanges);
  for (const Audio::SceneSource& source : plan.scene.sources()) {
    const auto overlaps = [&](const Audio::TimeRange& range) {
      return source.always ||
             std::any_of(source.active.begin(), source.active.end(), [&](const auto& active) {
               return active.begin < range.end && range.begin < active.end;
             });
    };
    if (std::any_of(ranges.begin(), ranges.end(), overlaps)) heard.push_back(source.id);
  }
  if (heard.empty()) return;
  warnings.push_back(
      fmt::format("--noise-from overlaps the active times of {} in {}, which ML then learns to "
                  "suppress; expected times of noise alone",
                  named(heard), s.sceneName()));
}

/// Warns of sources that MSNR cannot tell from noise.
void checkPauses(const SeparationPlan& plan, Warnings& warnings) {
  const SeparationSettings& s = plan.settings;
  if (s.method->nodeType != "MSNR") return;
  std::vector<int> endless;
  for (const Audio::SceneSource& source : plan.scene.sources()) {
    const bool isEndless =
        source.always ||
        (plan.duration &&
         std::any_of(source.active.begin(), source.active.end(), [&](const auto& range) {
           return range.begin <= 0.0 && range.end >= *plan.duration;
         }));
    if (isEndless) endless.push_back(source.id);
  }
  if (endless.empty()) return;
  warnings.push_back(
      fmt::format("{}: no pause of {} lies within {}, but MSNR learns in the pauses what is noise; "
                  "expected \"active\" times with gaps, or another method",
                  s.sceneName(), named(endless), s.recording));
}

// ---- what follows from the database

/// Warns of a database whose frames are shorter than its responses.
void checkFrameShare(const SeparationPlan& plan, Warnings& warnings) {
  const double share = plan.database->energyInFrame().value_or(1.0);
  if (share >= MIN_ENERGY) return;
  warnings.push_back(fmt::format(
      "{}: its frames of {} samples hold {} of the responses' energy, expected {} or more: sources "
      "leak into each other by the rest (zelk-sss tfdb import without --length chooses longer "
      "ones)",
      plan.settings.database, plan.settings.length, percentText(share), percentText(MIN_ENERGY)));
}

/// Who is listed at a time, and which measured position serves each.
struct Moment {
  double time = 0.0;
  std::vector<Audio::PlacedSource> sources;
  std::vector<std::size_t> positions;
};

/// Times at which another list of sources begins, and evenly spaced ones while sources move.
std::vector<double> timesToLookAt(const SeparationPlan& plan) {
  std::vector<double> times;
  const std::vector<Audio::SceneCrowd> crowds = plan.scene.crowds();
  const std::size_t step = 1 + crowds.size() / MAX_MOMENTS;
  for (std::size_t i = 0; i < crowds.size(); i += step) times.push_back(crowds[i].time);
  double end = 0.0;
  for (const Audio::SceneSource& source : allSources(plan.scene)) {
    if (source.track.size() > 1) end = std::max(end, source.track.back().t);
  }
  end = std::min(end, plan.duration.value_or(end));
  for (std::size_t i = 1; end > 0.0 && i <= MAX_MOMENTS; ++i) {
    times.push_back(end * static_cast<double>(i) / MAX_MOMENTS);
  }
  std::erase_if(times, [&](double t) { return plan.duration && t > *plan.duration; });
  std::sort(times.begin(), times.end());
  return times;
}

/// The list of sources at times, each looked up anew only where it moved.
class Surveyor {
 public:
  explicit Surveyor(const SeparationPlan& separationPlan)
      : plan(separationPlan), places(*separationPlan.database) {}

  Moment at(double time) {
    Moment moment{time, plan.scene.targetsAt(time), {}};
    for (const auto& noise : plan.scene.noiseAt(time, plan.settings.inactiveAsNoise)) {
      moment.sources.push_back(noise);
    }
    for (const Audio::PlacedSource& source : moment.sources) {
      moment.positions.push_back(nearest(source));
    }
    return moment;
  }

  BF::Location place(std::size_t position) const { return places.place(position); }

 private:
  std::size_t nearest(const Audio::PlacedSource& source) {
    const BF::Location& p = source.position;
    const auto known = found.find(source.id);
    if (known != found.end()) {
      const BF::Location& before = known->second.first;
      if (before.x == p.x && before.y == p.y && before.z == p.z) return known->second.second;
    }
    const std::size_t position = places.nearest(p);
    found[source.id] = {p, position};
    return position;
  }

  const SeparationPlan& plan;
  MeasuredPlaces places;
  std::map<int, std::pair<BF::Location, std::size_t>> found;
};

/// Warns of each source that is far from every response at its worst time.
void findDistantSources(const SeparationPlan& plan, const std::vector<Moment>& moments,
                        const Surveyor& surveyor, Warnings& warnings) {
  struct Worst {
    double angle;
    BF::Location wanted;
    std::size_t found;
  };
  std::map<int, Worst> worst;
  for (const Moment& moment : moments) {
    for (std::size_t i = 0; i < moment.sources.size(); ++i) {
      const Audio::PlacedSource& source = moment.sources[i];
      const double angle = BF::angleBetween(source.position, surveyor.place(moment.positions[i]));
      const auto known = worst.find(source.id);
      if (angle <= WIDE_ANGLE || (known != worst.end() && known->second.angle >= angle)) continue;
      worst[source.id] = {angle, source.position, moment.positions[i]};
    }
  }
  for (const auto& [id, w] : worst) {
    warnings.push_back(fmt::format(
        "{}: source {} at {}: the nearest response in {} is {:.0f} degrees away, at {}; expected "
        "one within {:.0f} degrees",
        plan.settings.sceneName(), id, directionText(w.wanted), plan.settings.database, w.angle,
        directionText(surveyor.place(w.found)), WIDE_ANGLE));
  }
}

/// Warns of sources that one response serves at once.
void findSharedPositions(const SeparationPlan& plan, const std::vector<Moment>& moments,
                         const Surveyor& surveyor, Warnings& warnings) {
  std::string first;
  std::set<std::pair<int, int>> pairs;
  for (const Moment& moment : moments) {
    std::map<std::size_t, int> owners;
    for (std::size_t i = 0; i < moment.sources.size(); ++i) {
      const int id = moment.sources[i].id;
      const auto [owner, isNew] = owners.emplace(moment.positions[i], id);
      if (isNew || !pairs.emplace(owner->second, id).second || !first.empty()) continue;
      first = fmt::format("sources {} and {} at {:.2f} s", owner->second, id, moment.time) +
              fmt::format(" (the one at {})", directionText(surveyor.place(moment.positions[i])));
    }
  }
  if (pairs.empty()) return;
  warnings.push_back(
      fmt::format("{}: one response of {} serves {}{}: they cannot be separated; expected sources "
                  "further apart, or a denser database",
                  plan.settings.sceneName(), plan.settings.database, first,
                  pairs.size() == 1 ? "" : fmt::format(" and {} more pairs", pairs.size() - 1)));
}

/// Warns of sources that the microphones hardly tell apart over a band of frequencies.
void findSingularBands(const SeparationPlan& plan, const std::vector<Moment>& moments,
                       Warnings& warnings) {
  if (!plan.settings.method->solvesForSources()) return;
  const SofaFile& database = *plan.database;
  const double spacing =
      database.samplingRate() / 2.0 / static_cast<double>(database.length() - 1);  // Hz
  const auto begin = static_cast<std::size_t>(std::ceil(MIN_FREQUENCY / spacing));
  std::vector<std::complex<float>> H;
  std::set<std::vector<std::size_t>> examined;
  SingularBand worst;
  const Moment* when = nullptr;
  for (const Moment& moment : moments) {
    std::vector<std::size_t> positions = moment.positions;
    std::sort(positions.begin(), positions.end());
    positions.erase(std::unique(positions.begin(), positions.end()), positions.end());
    if (positions.size() < 2 || positions.size() > database.receivers()) continue;
    if (examined.size() == MAX_LISTS || !examined.insert(positions).second) continue;
    if (H.empty()) H = database.readTransferFunctions();
    const auto band = widestSingularBand(H, database.receivers(), database.length(), positions,
                                         begin, MAX_CONDITION);
    if (!band || (when && band->last - band->first <= worst.last - worst.first)) continue;
    worst = *band;
    when = &moment;
  }
  if (!when || static_cast<double>(worst.last - worst.first + 1) * spacing < MIN_BANDWIDTH) return;
  std::vector<int> ids;
  for (const Audio::PlacedSource& source : when->sources) ids.push_back(source.id);
  warnings.push_back(fmt::format(
      "{}: the matrices that separate {} at {:.2f} s are nearly singular from {:.0f} to {:.0f} Hz "
      "(condition up to {:.1e}, expected {:.0f} or less), so noise grows there; expected sources "
      "further apart, a larger array, or --method DS or ML",
      plan.settings.sceneName(), named(ids), when->time, static_cast<double>(worst.first) * spacing,
      static_cast<double>(worst.last) * spacing, worst.condition, MAX_CONDITION));
}

}  // namespace

Warnings separationWarnings(const SeparationPlan& plan) {
  Warnings warnings;
  checkOverlap(plan, warnings);
  checkNoiseTimes(plan, warnings);
  checkPauses(plan, warnings);
  countSources(plan, warnings);
  findAbsentSources(plan, warnings);
  if (!plan.database) return warnings;
  checkFrameShare(plan, warnings);
  Surveyor surveyor(plan);
  std::vector<Moment> moments;
  for (const double time : timesToLookAt(plan)) moments.push_back(surveyor.at(time));
  findDistantSources(plan, moments, surveyor, warnings);
  findSharedPositions(plan, moments, surveyor, warnings);
  findSingularBands(plan, moments, warnings);
  return warnings;
}

std::vector<std::string> nearestResponses(const SeparationPlan& plan) {
  std::vector<std::string> notes;
  if (!plan.database) return notes;
  const MeasuredPlaces places(*plan.database);
  for (const Audio::SceneSource& source : allSources(plan.scene)) {
    if (source.track.size() > 1) continue;
    const BF::Location& wanted = source.track.front().position;
    notes.push_back(fmt::format("source {} at {}: nearest response at {}", source.id,
                                directionText(wanted),
                                directionText(places.place(places.nearest(wanted)))));
  }
  return notes;
}
