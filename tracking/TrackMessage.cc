#include "tracking/TrackMessage.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>

#include "audio/RangeText.h"
#include "dsp/DataError.h"
#include "scene/Json.h"

namespace Tracking {

namespace {

using Audio::PlacedSource;
using nlohmann::json;

constexpr double MAX_COUNT = 9007199254740992.0;  // 2⁵³: as far as counts are exact
constexpr double MAX_HOP = 10.0;                  // seconds
constexpr double MAX_TIME = 1e9;                  // seconds, as in scene files
constexpr double MAX_COORDINATE = 1e6;
constexpr double SHORTEST = 1e-6;  // of a vector that has a direction

double numberAt(const json& object, const char* key, double least, double most) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number()) {
    throw DataError(fmt::format("\"{}\": found {}, expected a number", key,
                                found == object.end() ? "none" : Audio::quotedJson(*found)));
  }
  const auto value = found->get<double>();
  if (value >= least && value <= most) return value;
  throw DataError(fmt::format("\"{}\": found {}, expected {:g} to {:g}", key, value, least, most));
}

int idOf(const json& object) {
  const double id = numberAt(object, "id", 0.0, std::numeric_limits<int>::max());
  if (id != std::floor(id)) {
    throw DataError(fmt::format("\"id\": found {}, expected a whole number", id));
  }
  return static_cast<int>(id);
}

TrackMessage trackerMessage(const json& document, const TrackSettings& settings) {
  TrackMessage message;
  message.time = numberAt(document, "timeStamp", 0.0, MAX_COUNT) * settings.hop;
  if (*message.time > MAX_TIME) {
    throw DataError(fmt::format("\"timeStamp\": found {:g} s, expected {:g} s at most",
                                *message.time, MAX_TIME));
  }
  const json& slots = document.at("src");
  if (!slots.is_array() || slots.size() > Audio::Scene::MAX_AT_ONCE) {
    throw DataError(fmt::format("\"src\": found {}, expected a list of {} sources at most",
                                Audio::quotedJson(slots), Audio::Scene::MAX_AT_ONCE));
  }
  std::set<int> ids;
  for (const json& slot : slots) {
    if (!slot.is_object()) {
      throw DataError(
          fmt::format("\"src\": found {}, expected an object", Audio::quotedJson(slot)));
    }
    const int id = idOf(slot);
    if (id == 0) continue;
    const BF::Location v = {numberAt(slot, "x", -MAX_COORDINATE, MAX_COORDINATE),
                            numberAt(slot, "y", -MAX_COORDINATE, MAX_COORDINATE),
                            numberAt(slot, "z", -MAX_COORDINATE, MAX_COORDINATE)};
    const double length = std::hypot(v.x, v.y, v.z);
    if (length < SHORTEST) continue;
    if (!ids.insert(id).second) {
      ++message.contradictions;
      continue;
    }
    const double scale = settings.distance / length;
    message.targets.push_back({id, {v.x * scale, v.y * scale, v.z * scale}});
  }
  return message;
}

std::vector<PlacedSource> standing(const std::vector<Audio::SceneSource>& sources) {
  std::vector<PlacedSource> placed;
  for (const Audio::SceneSource& source : sources) {
    if (source.track.size() > 1 || !source.always) {
      throw DataError(fmt::format(
          "source {} has \"track\" or \"active\", expected where it is at the line's time",
          source.id));
    }
    placed.push_back({source.id, source.track.front().position});
  }
  return placed;
}

TrackMessage sceneLine(json document) {
  TrackMessage message;
  message.lasts = true;
  if (document.contains("t")) message.time = numberAt(document, "t", 0.0, MAX_TIME);
  document.erase("t");
  const Audio::Scene scene = Audio::Scene::fromDocument(document, "line of a scene");
  message.targets = standing(scene.sources());
  message.noise = standing(scene.noiseSources());
  return message;
}

}  // namespace

double hopOf(const std::string& text) {
  const std::size_t slash = text.find('/');
  double hop = 0.0;
  double rate = 1.0;
  const bool areNumbers =
      Audio::parseNumber(text.substr(0, slash), hop) &&
      (slash == std::string::npos || Audio::parseNumber(text.substr(slash + 1), rate));
  hop /= rate;
  if (areNumbers && hop > 0.0 && hop <= MAX_HOP) return hop;
  throw DataError(fmt::format("{}, expected SAMPLES/RATE or seconds, above 0 and up to {:g} s",
                              Audio::quotedJson(text), MAX_HOP));
}

TrackMessage parseTrackMessage(const std::string& text, const TrackSettings& settings) {
  json document = Audio::parseJson(text);
  if (document.contains("src")) return trackerMessage(document, settings);
  if (document.contains("sources")) return sceneLine(std::move(document));
  throw DataError(fmt::format("found {}, expected an object with \"src\" or \"sources\"",
                              Audio::quotedJson(document)));
}

}  // namespace Tracking
