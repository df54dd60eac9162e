#include "cli/EvaluationPlan.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "audio/FileText.h"
#include "scene/JsonPlace.h"

namespace {

using Place = Audio::JsonPlace;

constexpr std::size_t MAX_FILE_SIZE = std::size_t{1} << 20;  // bytes
constexpr double MAX_DECIBELS = 200.0;
constexpr double MAX_LATENCY = 10'000.0;  // ms
constexpr int MAX_COUNT = 1024;           // of microphones

std::string textOf(const Place& place) {
  if (!place->is_string()) place.refuse("a text");
  return place->get<std::string>();
}

int wholeNumber(const Place& place, int least, int most) {
  const std::string expected = fmt::format("a whole number from {} to {}", least, most);
  if (!place->is_number_integer()) place.refuse(expected);
  const double value = place.number(expected, most);
  if (value < least) place.refuse(expected);
  return static_cast<int>(value);
}

std::vector<double> numbers(const Place& place, std::size_t count, const std::string& expected) {
  if (!place->is_array() || (count > 0 && place->size() != count)) place.refuse(expected);
  std::vector<double> values;
  for (std::size_t i = 0; i < place->size(); ++i)
    values.push_back(place.at(i).number(expected, 1e6));
  return values;
}

std::string besidePlan(const std::string& plan, const std::string& file) {
  return (std::filesystem::path(plan).parent_path() / file).string();
}

EvaluationPlan::Array arrayOf(const Place& place, const std::string& plan) {
  place.checkKeys({"name"}, {"circular", "linear", "microphones", "responses"});
  if (place->size() != 2) {
    place.refuse("one of circular, linear, microphones and responses beside the name");
  }
  EvaluationPlan::Array array{textOf(place.at("name")), {}, {}};
  for (const char* shape : {"circular", "linear"}) {
    if (!place->contains(shape)) continue;
    const Place entry = place.at(shape);
    const char* const expected = "[count, metres]";
    const double metres = numbers(entry, 2, expected)[1];
    const int count = wholeNumber(entry.at(std::size_t{0}), 1, MAX_COUNT);
    if (metres <= 0.0) entry.refuse(expected);
    array.microphones = entry.where().ends_with("circular") ? circularArray(count, metres)
                                                            : linearArray(count, metres);
  }
  if (place->contains("microphones")) {
    array.microphones = readMicrophones(besidePlan(plan, textOf(place.at("microphones"))));
  }
  if (place->contains("responses")) {
    array.responses = besidePlan(plan, textOf(place.at("responses")));
  }
  return array;
}

EvaluationPlan::Room roomOf(const Place& place) {
  place.checkKeys({"name"}, {"size", "t60", "absorption"});
  EvaluationPlan::Room room{textOf(place.at("name")), {}};
  if (!place->contains("size")) {
    if (place->size() > 1) place.refuse("t60 or absorption without size", "all of them or none");
    return room;
  }
  room.description.emplace();
  const std::vector<double> size =
      numbers(place.at("size"), 3, "[length, width, height] in metres");
  std::copy(size.begin(), size.end(), room.description->size.begin());
  if (place->contains("t60")) room.description->t60 = place.at("t60").seconds();
  if (place->contains("absorption")) {
    room.description->absorption =
        numbers(place.at("absorption"), 0, "a list of one or six parts of the energy");
  }
  return room;
}

EvaluationPlan::Noise noiseOf(const Place& place) {
  place.checkKeys({"name"}, {"sensor", "diffuse"});
  EvaluationPlan::Noise noise{textOf(place.at("name")), {}, {}};
  const auto read = [&](const char* key, std::optional<double>& level) {
    if (place->contains(key)) level = place.at(key).number("dB, within ±200", MAX_DECIBELS);
  };
  read("sensor", noise.sensor);
  read("diffuse", noise.diffuse);
  return noise;
}

EvaluationPlan::Database databaseOf(const Place& place) {
  place.checkKeys({"name", "responses"}, {"length", "reference", "error", "grid", "latency"});
  EvaluationPlan::Database database;
  database.name = textOf(place.at("name"));
  const std::string responses = textOf(place.at("responses"));
  if (responses != "free field" && responses != "own") {
    place.at("responses").refuse("\"free field\" or \"own\"");
  }
  database.isFreeField = responses == "free field";
  if (place->contains("length")) database.length = wholeNumber(place.at("length"), 16, 65536);
  if (place->contains("reference")) {
    database.reference = wholeNumber(place.at("reference"), 1, MAX_COUNT);
  }
  if (place->contains("error")) database.error = place.at("error").number("degrees", 180.0);
  if (place->contains("latency")) {
    database.latency = place.at("latency").number("milliseconds", MAX_LATENCY);
    if (database.latency <= 0.0) place.at("latency").refuse("a number above 0");
  }
  if (place->contains("grid")) {
    database.grid = place.at("grid").number("degrees above 0, up to 180", 180.0);
    if (database.grid <= 0.0) place.at("grid").refuse("degrees above 0, up to 180");
  }
  return database;
}

template <class Entry, class Parse>
std::vector<Entry> listOf(const Place& place, Parse parse) {
  if (!place->is_array() || place->empty()) place.refuse("a list of one or more");
  std::vector<Entry> entries;
  for (std::size_t i = 0; i < place->size(); ++i) entries.push_back(parse(place.at(i)));
  return entries;
}

}  // namespace

EvaluationPlan EvaluationPlan::read(const std::string& path) {
  const nlohmann::json document = Audio::parseJsonOf(Audio::fileText(path, MAX_FILE_SIZE), path);
  const Place root(path, "", document);
  root.checkKeys({"dry", "scenes", "arrays", "rooms", "noises", "databases"}, {"methods", "rate"});
  EvaluationPlan plan;
  if (document.contains("rate")) plan.rate = wholeNumber(root.at("rate"), 1000, 1'000'000);
  plan.dry = listOf<std::string>(
      root.at("dry"), [&](const Place& place) { return besidePlan(path, textOf(place)); });
  plan.scenes = listOf<Audio::Scene>(root.at("scenes"), [&](const Place& place) {
    Audio::Scene scene = Audio::Scene::parse(place->dump(), path + ": " + place.where());
    const std::size_t count = scene.sources().size() + scene.noiseSources().size();
    if (scene.sources().empty() || count > plan.dry.size()) {
      place.refuse(fmt::format("{} sources", count),
                   fmt::format("one target at least and no more sources than dry files, {}",
                               plan.dry.size()));
    }
    return scene;
  });
  plan.arrays = listOf<Array>(root.at("arrays"), [&](const Place& p) { return arrayOf(p, path); });
  plan.rooms = listOf<Room>(root.at("rooms"), roomOf);
  plan.noises = listOf<Noise>(root.at("noises"), noiseOf);
  plan.databases = listOf<Database>(root.at("databases"), databaseOf);
  if (document.contains("methods")) {
    plan.methods = listOf<std::string>(root.at("methods"), textOf);
  }
  return plan;
}
