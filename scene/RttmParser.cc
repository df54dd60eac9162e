// Reads who speaks when from RTTM files.

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "audio/FileText.h"
#include "dsp/DataError.h"
#include "scene/Json.h"
#include "scene/Scene.h"

namespace Audio {

namespace {

constexpr double MAX_TIME = 1e9;  // seconds

// Type, file, channel, begin, duration, <NA>, <NA>, name; the rest does not count.
constexpr std::size_t FIELDS = 8;

/// A line's fields and where it stands, for messages.
class Line {
 public:
  Line(const std::string& fileName, std::size_t lineNumber, const std::string& text)
      : file(&fileName), number(lineNumber) {
    std::istringstream words(text);
    for (std::string word; words >> word;) fields.push_back(std::move(word));
  }

  [[noreturn]] void refuse(const std::string& found, const std::string& expected) const {
    throw DataError(
        fmt::format("{}: line {}: found {}, expected {}", *file, number, found, expected));
  }

  bool isTurn() const { return !fields.empty() && fields[0] == "SPEAKER"; }
  void requireFields() const {
    if (fields.size() >= FIELDS) return;
    refuse(fmt::format("{} fields", fields.size()),
           "SPEAKER, recording, channel, begin, duration, <NA>, <NA>, name");
  }

  const std::string& recording() const { return fields[1]; }
  const std::string& speaker() const { return fields[7]; }

  TimeRange range() const {
    const double begin = seconds(fields[3], "a begin in seconds, 0 to 1e9");
    return {begin, begin + seconds(fields[4], "a duration in seconds, 0 to 1e9")};
  }

 private:
  double seconds(const std::string& text, const char* expected) const {
    double value = 0.0;
    const char* end = text.data() + text.size();
    const auto [rest, fault] = std::from_chars(text.data(), end, value);
    if (fault == std::errc() && rest == end && value >= 0.0 && value <= MAX_TIME) return value;
    refuse(quotedJson(text), expected);
  }

  const std::string* file;
  std::size_t number;
  std::vector<std::string> fields;
};

std::string namesOf(const std::vector<Speaker>& speakers) {
  std::string names;
  for (const Speaker& speaker : speakers) names += (names.empty() ? "" : ", ") + speaker.name;
  return names;
}

void addTurn(const Line& line, const std::vector<Speaker>& speakers,
             std::vector<SceneSource>& sources) {
  const auto known = std::find_if(speakers.begin(), speakers.end(), [&](const Speaker& speaker) {
    return speaker.name == line.speaker();
  });
  if (known == speakers.end()) {
    line.refuse("the speaker " + quotedJson(line.speaker()), "one of " + namesOf(speakers));
  }
  const TimeRange turn = line.range();
  if (turn.begin >= turn.end) return;
  sources[static_cast<std::size_t>(known - speakers.begin())].active.push_back(turn);
}

}  // namespace

Scene Scene::readRttm(const std::string& path, const std::vector<Speaker>& speakers,
                      const std::string& recording) {
  return parseRttm(fileText(path, MAX_FILE_SIZE), path, speakers, recording);
}

Scene Scene::parseRttm(const std::string& text, const std::string& name,
                       const std::vector<Speaker>& speakers, const std::string& recording) {
  Scene scene;
  for (const Speaker& speaker : speakers) {
    scene.targets.push_back(speaker.source);
    scene.targets.back().always = false;
    scene.targets.back().active.clear();
  }
  std::string chosen = recording;
  std::istringstream lines(text);
  std::size_t number = 0;
  for (std::string content; std::getline(lines, content);) {
    const Line line(name, ++number, content);
    if (!line.isTurn()) continue;
    line.requireFields();
    if (chosen.empty()) chosen = line.recording();
    if (line.recording() == chosen) {
      addTurn(line, speakers, scene.targets);
    } else if (recording.empty()) {
      line.refuse("the recording " + quotedJson(line.recording()) + " after " + quotedJson(chosen),
                  "one recording, or that one is chosen");
    }
  }
  for (SceneSource& source : scene.targets) source.active = merged(std::move(source.active));
  scene.requireFewAtOnce(name, false);
  return scene;
}

}  // namespace Audio
