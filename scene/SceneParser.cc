// Reads and checks scene files.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "audio/FileText.h"
#include "dsp/DataError.h"
#include "scene/Json.h"
#include "scene/JsonPlace.h"
#include "scene/Scene.h"

namespace Audio {

namespace {

using nlohmann::json;

constexpr double MAX_VALUE = 1e6;  // degrees or metres; beyond it single precision loses the place

using Place = JsonPlace;

int parseId(const Place& place) {
  const char* const expected = "a whole number from 0 to 2147483647";
  if (!place->is_number_integer()) place.refuse(expected);
  const double id = place->get<double>();
  if (id < 0 || id > std::numeric_limits<int>::max()) place.refuse(expected);
  return place->get<int>();
}

BF::Location parsePosition(const Place& place) {
  if (!place->is_array() || place->size() != 3) place.refuse("[x, y, z] in metres");
  const auto coordinate = [&](std::size_t i) {
    return place.at(i).number("a coordinate in metres, within ±1e6", MAX_VALUE);
  };
  return {coordinate(0), coordinate(1), coordinate(2)};
}

double parseElevation(const Place& place) {
  const char* const expected = "degrees from -90 to 90";
  return place.number(expected, 90);
}

double parseDistance(const Place& place) {
  const char* const expected = "a distance above 0 in metres, up to 1e6";
  const double distance = place.number(expected, MAX_VALUE);
  if (distance <= 0) place.refuse(expected);
  return distance;
}

/// Whether an object has one of the keys of a direction.
bool hasDirection(const Place& place) {
  return place->contains("azimuth") || place->contains("elevation") || place->contains("distance");
}

/// The position that an object states by "position" or by "azimuth" with its companions; distance:
/// that of a direction without one.
TrackPoint parsePoint(const Place& place, double distance = 1.0) {
  TrackPoint point;
  point.direction.distance = distance;
  point.isDirection = hasDirection(place);
  if (point.isDirection == place->contains("position")) {
    place.refuse(point.isDirection ? "both a direction and \"position\"" : "no position",
                 "\"azimuth\" (with \"elevation\" and \"distance\") or \"position\"");
  }
  if (!point.isDirection) {
    point.position = parsePosition(place.at("position"));
    return point;
  }
  if (!place->contains("azimuth")) place.refuse("no key \"azimuth\"", "one");
  point.direction.azimuth = place.at("azimuth").number("degrees, within ±1e6", MAX_VALUE);
  if (place->contains("elevation")) {
    point.direction.elevation = parseElevation(place.at("elevation"));
  }
  if (place->contains("distance")) point.direction.distance = parseDistance(place.at("distance"));
  point.position = BF::locationOf(point.direction);
  return point;
}

std::vector<TrackPoint> parseTrack(const Place& place, double distance) {
  if (!place->is_array() || place->empty()) place.refuse("a list of one point or more");
  std::vector<TrackPoint> track;
  for (std::size_t i = 0; i < place->size(); ++i) {
    const Place entry = place.at(i);
    entry.checkKeys({"t"}, {"azimuth", "elevation", "distance", "position"});
    TrackPoint point = parsePoint(entry, distance);
    point.t = entry.at("t").seconds();
    if (!track.empty() && point.t <= track.back().t) {
      entry.at("t").refuse(fmt::format("a time after the previous point's {}", track.back().t));
    }
    track.push_back(point);
  }
  return track;
}

std::vector<TimeRange> parseActive(const Place& place) {
  const char* const expected = "[begin, end] in seconds with begin < end";
  if (!place->is_array()) place.refuse(fmt::format("a list of {}", expected));
  std::vector<TimeRange> active;
  for (std::size_t i = 0; i < place->size(); ++i) {
    const Place entry = place.at(i);
    if (!entry->is_array() || entry->size() != 2) entry.refuse(expected);
    const TimeRange range{entry.at(std::size_t{0}).seconds(), entry.at(1).seconds()};
    if (range.begin >= range.end) entry.refuse(expected);
    active.push_back(range);
  }
  return merged(std::move(active));
}

SceneSource parseSource(const Place& place) {
  place.checkKeys({"id"}, {"azimuth", "elevation", "distance", "position", "track", "active"});
  SceneSource source;
  source.id = parseId(place.at("id"));
  if (place->contains("track")) {
    if (place->contains("azimuth") || place->contains("elevation") || place->contains("position")) {
      place.refuse("both \"track\" and a position beside it", "one of them");
    }
    source.track = parseTrack(
        place.at("track"), place->contains("distance") ? parseDistance(place.at("distance")) : 1.0);
  } else {
    source.track = {parsePoint(place)};
  }
  source.always = !place->contains("active");
  if (!source.always) source.active = parseActive(place.at("active"));
  return source;
}

/// idPlaces: where each id of the document stands.
std::vector<SceneSource> parseSources(const Place& place, std::map<int, std::string>& idPlaces) {
  if (!place->is_array()) place.refuse("a list of sources");
  std::vector<SceneSource> sources;
  for (std::size_t i = 0; i < place->size(); ++i) {
    const Place entry = place.at(i);
    sources.push_back(parseSource(entry));
    const Place id = entry.at("id");
    const auto [known, isNew] = idPlaces.emplace(sources.back().id, id.where());
    if (!isNew) id.refuse(fmt::format("an id that no other source has ({} has it)", known->second));
  }
  return sources;
}

}  // namespace

Scene Scene::read(const std::string& path) { return parse(fileText(path, MAX_FILE_SIZE), path); }

Scene Scene::parse(const std::string& text, const std::string& name) {
  return fromDocument(parseJsonOf(text, name), name);
}

Scene Scene::fromDocument(const json& document, const std::string& name) {
  const Place root(name, "", document);
  root.checkKeys({"sources"}, {"noise"});
  std::map<int, std::string> idPlaces;
  Scene scene;
  scene.targets = parseSources(root.at("sources"), idPlaces);
  if (document.contains("noise")) scene.noises = parseSources(root.at("noise"), idPlaces);
  scene.requireFewAtOnce(name, false);
  return scene;
}

}  // namespace Audio
