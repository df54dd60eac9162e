#include "scene/SourceText.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>

#include "audio/RangeText.h"
#include "dsp/DataError.h"
#include "scene/Json.h"

namespace Audio {

namespace {

constexpr double MAX_VALUE = 1e6;  // degrees or metres, as in scene files

[[noreturn]] void refuse(const std::string& found, const std::string& expected) {
  throw DataError(fmt::format("found {}, expected {}", quotedJson(found), expected));
}

bool isWholeNumber(const std::string& text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

double numberOf(const std::string& text, double least, double most, const std::string& expected) {
  double value = 0.0;
  if (!parseNumber(text, value) || !(value >= least && value <= most)) refuse(text, expected);
  return value;
}

BF::Direction directionIn(const std::vector<std::string>& fields) {
  BF::Direction direction;
  direction.azimuth =
      numberOf(fields.at(0), -MAX_VALUE, MAX_VALUE, "an azimuth in degrees, within ±1e6");
  if (fields.size() > 1) {
    direction.elevation = numberOf(fields[1], -90.0, 90.0, "an elevation in degrees, -90 to 90");
  }
  if (fields.size() > 2) {
    direction.distance = numberOf(fields[2], std::numeric_limits<double>::min(), MAX_VALUE,
                                  "a distance above 0 in metres, up to 1e6");
  }
  return direction;
}

int idOf(const std::string& text) {
  int id = 0;
  if (!parseNumber(text, id) || id < 0) refuse(text, "an id, a whole number from 0 to 2147483647");
  return id;
}

std::vector<std::string> partsOf(const std::string& text, char separator) {
  std::vector<std::string> parts;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    parts.emplace_back(trimmed(std::string_view(text).substr(begin, end - begin)));
    begin = end + 1;
  }
  return parts;
}

Speaker speakerOf(const std::string& text) {
  std::vector<std::string> parts = partsOf(text, ':');
  if (parts.size() < 2 || parts.size() > 4 || parts[0].empty()) {
    refuse(text, "ID:AZIMUTH[:ELEVATION[:DISTANCE]]");
  }
  Speaker speaker{parts[0], {}};
  parts.erase(parts.begin());
  TrackPoint& point = speaker.source.track.emplace_back();
  point.isDirection = true;
  point.direction = directionIn(parts);
  point.position = BF::locationOf(point.direction);
  return speaker;
}

std::vector<Speaker> speakersOf(const std::vector<std::string>& texts) {
  std::vector<Speaker> speakers;
  std::set<std::string> names;
  for (const std::string& text : texts) {
    const auto inText = [&](const std::string& reason) {
      return DataError(fmt::format("{}: {}", quotedJson(text), reason));
    };
    try {
      speakers.push_back(speakerOf(text));
    } catch (const DataError& error) {
      throw inText(error.what());
    }
    if (names.insert(speakers.back().name).second) continue;
    throw inText(fmt::format("found {} twice, expected it once", quotedJson(speakers.back().name)));
  }
  const bool areNumbers = std::all_of(speakers.begin(), speakers.end(), [](const Speaker& speaker) {
    return isWholeNumber(speaker.name);
  });
  int number = 0;
  std::set<int> ids;
  for (Speaker& speaker : speakers) {
    speaker.source.id = areNumbers ? idOf(speaker.name) : number++;
    if (ids.insert(speaker.source.id).second) continue;
    throw DataError(fmt::format("found the id {} twice, expected it once", speaker.source.id));
  }
  return speakers;
}

}  // namespace Audio
