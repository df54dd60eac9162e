// Reads scenes from tables: who is where, and from when to when, a row for each stretch of time.

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <sstream>

#include "dsp/DataError.h"
#include "scene/Scene.h"
#include "scene/SourceText.h"
#include "scene/Stretches.h"

namespace Audio {

namespace {

constexpr double MAX_TIME = 1e9;  // seconds
constexpr std::size_t MIN_FIELDS = 4;
constexpr std::size_t MAX_FIELDS = 6;

/// A source at one place for a time.
struct Row {
  std::size_t line;
  int id;
  TimeRange range;
  TrackPoint place;
};

Row rowOf(std::vector<std::string> fields, std::size_t line) {
  if (fields.size() < MIN_FIELDS || fields.size() > MAX_FIELDS) {
    throw DataError(
        fmt::format("found {} fields, expected id, start, end, azimuth[, elevation[, distance]]",
                    fields.size()));
  }
  Row row{line, idOf(fields[0]), {}, {}};
  row.range.begin = numberOf(fields[1], -MAX_TIME, MAX_TIME, "a start in seconds, within ±1e9");
  row.range.end = numberOf(fields[2], -MAX_TIME, MAX_TIME, "an end in seconds, within ±1e9");
  if (row.range.begin >= row.range.end) {
    throw DataError(fmt::format("found the times {} to {}, expected an end after the start",
                                fields[1], fields[2]));
  }
  fields.erase(fields.begin(), fields.begin() + 3);
  while (fields.size() > 1 && fields.back().empty()) fields.pop_back();
  row.place.isDirection = true;
  row.place.direction = directionIn(fields);
  row.place.position = BF::locationOf(row.place.direction);
  return row;
}

/// The rows of a file by source, in the order in which the sources first come; and each source's by
/// time.
std::vector<std::vector<Row>> readRows(const std::string& text, const std::string& name) {
  std::vector<std::vector<Row>> rows;
  std::map<int, std::size_t> places;  // in rows, by id
  std::istringstream lines(text);
  std::size_t number = 0;
  for (std::string content; std::getline(lines, content);) {
    ++number;
    if (content.ends_with('\r')) content.pop_back();
    const std::vector<std::string> fields = partsOf(content, ',');
    const bool isEmpty = fields.size() == 1 && fields[0].empty();
    const bool isHeader = number == 1 && fields[0] == "id";
    if (isEmpty || isHeader) continue;
    try {
      const Row row = rowOf(fields, number);
      const std::size_t place = places.emplace(row.id, rows.size()).first->second;
      if (place == rows.size()) rows.emplace_back();
      rows[place].push_back(row);
    } catch (const DataError& error) {
      throw DataError(fmt::format("{}: line {}: {}", name, number, error.what()));
    }
  }
  for (std::vector<Row>& list : rows) {
    std::stable_sort(list.begin(), list.end(),
                     [](const Row& a, const Row& b) { return a.range.begin < b.range.begin; });
  }
  return rows;
}

}  // namespace

Scene Scene::parseCsv(const std::string& text, const std::string& name) {
  Scene scene;
  for (const std::vector<Row>& rows : readRows(text, name)) {
    SceneSource& source = scene.targets.emplace_back();
    source.id = rows.front().id;
    const Row* before = nullptr;
    for (const Row& row : rows) {
      if (before && row.range.begin < before->range.end) {
        throw DataError(fmt::format(
            "{}: line {}: found a time of source {} that overlaps the one in line {}, expected it "
            "at one place at a time",
            name, row.line, row.id, before->line));
      }
      addStretch(source, row.range, row.place);
      before = &row;
    }
  }
  scene.requireFewAtOnce(name, false);
  return scene;
}

}  // namespace Audio
