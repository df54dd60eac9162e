#include "report/RunRecord.h"

#include <fmt/format.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "audio/FileText.h"
#include "dsp/DataError.h"
#include "scene/JsonPlace.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr std::size_t MAX_FILE_SIZE = std::size_t{64} << 20;  // bytes

Json jsonOf(const Audio::TrackPoint& point, bool isMoving) {
  Json json = Json::object();
  if (isMoving) json["t"] = point.t;
  if (point.isDirection) {
    json["azimuth"] = point.direction.azimuth;
    json["elevation"] = point.direction.elevation;
    json["distance"] = point.direction.distance;
  } else {
    json["position"] = {point.position.x, point.position.y, point.position.z};
  }
  return json;
}

/// As a scene file has it.
Json jsonOf(const std::vector<Audio::SceneSource>& sources) {
  Json list = Json::array();
  for (const Audio::SceneSource& source : sources) {
    Json json = {{"id", source.id}};
    if (source.track.size() == 1) {
      json.update(jsonOf(source.track.front(), false));
    } else {
      json["track"] = Json::array();
      for (const auto& point : source.track) json["track"].push_back(jsonOf(point, true));
    }
    if (!source.always) {
      json["active"] = Json::array();
      for (const Audio::TimeRange& range : source.active) {
        json["active"].push_back({range.begin, range.end});
      }
    }
    list.push_back(std::move(json));
  }
  return list;
}

std::string textOf(const Audio::JsonPlace& place) {
  if (!place->is_string()) place.refuse("a text");
  return place->get<std::string>();
}

int wholeOf(const Audio::JsonPlace& place) {
  if (!place->is_number_integer()) place.refuse("a whole number");
  return place->get<int>();
}

}  // namespace

std::string RunRecord::json() const {
  Json list = Json::object();
  for (const auto& [name, value] : parameters) list[name] = value;
  const Json document = {
      {"version", version},
      {"recording", recording},
      {"channels", channels},
      {"database", database},
      {"responses", responses},
      {"method", method},
      {"parameters", list},
      {"length", length},
      {"advance", advance},
      {"window", window},
      {"latency", latencySamples},
      {"sampling_rate", samplingRate},
      {"microphones", microphones},
      {"reference_mic", reference},
      {"passes", passes},
      {"refine_passes", refinePasses},
      {"duration_seconds", duration},
      {"elapsed_seconds", elapsed},
      {"warnings", warnings},
      {"scene", {{"sources", jsonOf(scene.sources())}, {"noise", jsonOf(scene.noiseSources())}}}};
  return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::optional<RunRecord> RunRecord::read(const std::string& folder) {
  const std::string path = (fs::path(folder) / NAME).string();
  std::error_code ignored;
  if (!fs::exists(path, ignored)) return {};
  const nlohmann::json document = Audio::parseJsonOf(Audio::fileText(path, MAX_FILE_SIZE), path);
  const Audio::JsonPlace top(path, "", document);
  top.checkKeys(
      {"version", "recording", "channels", "database", "responses", "method", "parameters",
       "length", "advance", "window", "sampling_rate", "microphones", "reference_mic", "passes",
       "refine_passes", "duration_seconds", "elapsed_seconds", "warnings", "scene"},
      {"latency"});
  RunRecord run;
  run.version = textOf(top.at("version"));
  run.recording = textOf(top.at("recording"));
  run.channels = textOf(top.at("channels"));
  run.database = textOf(top.at("database"));
  run.responses = textOf(top.at("responses"));
  run.method = textOf(top.at("method"));
  const Audio::JsonPlace parameters = top.at("parameters");
  if (!parameters->is_object()) parameters.refuse("an object");
  for (const auto& [name, value] : parameters->items()) {
    run.parameters.emplace_back(name, textOf(parameters.at(name)));
  }
  run.length = wholeOf(top.at("length"));
  run.advance = wholeOf(top.at("advance"));
  run.window = textOf(top.at("window"));
  run.latencySamples = top->contains("latency") ? wholeOf(top.at("latency")) : run.length;
  run.samplingRate = wholeOf(top.at("sampling_rate"));
  if (run.samplingRate < 1) top.at("sampling_rate").refuse("a number above 0");
  run.microphones = wholeOf(top.at("microphones"));
  run.reference = wholeOf(top.at("reference_mic"));
  run.passes = wholeOf(top.at("passes"));
  run.refinePasses = wholeOf(top.at("refine_passes"));
  run.duration = top.at("duration_seconds").seconds();
  run.elapsed = top.at("elapsed_seconds").seconds();
  const Audio::JsonPlace warnings = top.at("warnings");
  if (!warnings->is_array()) warnings.refuse("a list");
  for (std::size_t i = 0; i < warnings->size(); ++i) {
    run.warnings.push_back(textOf(warnings.at(i)));
  }
  run.scene = Audio::Scene::parse(top.at("scene")->dump(), path);
  return run;
}

std::vector<RunSource> sourcesOfRun(const std::string& folder) {
  const std::string path = (fs::path(folder) / "timeline.json").string();
  const nlohmann::json document = Audio::parseJsonOf(Audio::fileText(path, MAX_FILE_SIZE), path);
  const Audio::JsonPlace top(path, "", document);
  top.checkKeys({"sampling_rate", "samples", "sources"}, {});
  const Audio::JsonPlace list = top.at("sources");
  if (!list->is_array() || list->empty()) list.refuse("a list of one source or more");
  std::vector<RunSource> sources;
  for (std::size_t i = 0; i < list->size(); ++i) {
    const Audio::JsonPlace entry = list.at(i);
    entry.checkKeys({"id", "file", "active"}, {"clipped_samples", "non_finite_samples", "peak"});
    RunSource source;
    source.id = wholeOf(entry.at("id"));
    const std::string name = textOf(entry.at("file"));
    if (name.empty() || name.find('/') != std::string::npos) {
      entry.at("file").refuse("the name of a file in the folder");
    }
    source.path = (fs::path(folder) / name).string();
    const Audio::JsonPlace active = entry.at("active");
    if (!active->is_array()) active.refuse("a list of ranges");
    for (std::size_t r = 0; r < active->size(); ++r) {
      const Audio::JsonPlace range = active.at(r);
      if (!range->is_array() || range->size() != 2) range.refuse("two times");
      source.active.emplace_back(range.at(std::size_t{0}).seconds(),
                                 range.at(std::size_t{1}).seconds());
    }
    sources.push_back(std::move(source));
  }
  return sources;
}
