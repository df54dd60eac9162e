// Reads microphone positions from JSON.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "audio/FileText.h"
#include "dsp/DataError.h"
#include "responses/ArrayGeometry.h"
#include "scene/Json.h"

namespace {

using Audio::quotedJson;
using nlohmann::json;

constexpr std::uintmax_t MAX_FILE = 1 << 20;  // bytes
constexpr std::size_t MAX_MICROPHONES = 1024;
constexpr double MAX_COORDINATE = 100.0;  // metres

std::string readText(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    throw DataError(fmt::format("{}: is no file, expected microphone positions in JSON", path));
  }
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (error || size > MAX_FILE) {
    throw DataError(fmt::format("{}: has {} bytes, expected at most {}", path, size, MAX_FILE));
  }
  return Audio::fileText(path);
}

json parse(const std::string& path) {
  const std::string text = readText(path);
  try {
    return Audio::parseJson(text);
  } catch (const DataError& error) {
    throw DataError(fmt::format("{}: {}, expected {}", path, error.what(),
                                "{\"microphones\": [[x, y, z], …]}"));
  }
}

BF::Position readPosition(const std::string& path, std::size_t index, const json& row) {
  const bool valid =
      row.is_array() && row.size() == 3 && std::all_of(row.begin(), row.end(), [](const json& x) {
        return x.is_number() && std::abs(x.get<double>()) <= MAX_COORDINATE;
      });
  if (!valid) {
    throw DataError(
        fmt::format("{}: /microphones/{}: found {}, expected [x, y, z] in metres, each within ±{}",
                    path, index, quotedJson(row), MAX_COORDINATE));
  }
  return row.get<BF::Position>();
}

}  // namespace

Positions readMicrophones(const std::string& path) {
  const json document = parse(path);
  if (!document.is_object() || document.size() != 1 || !document.contains("microphones")) {
    throw DataError(
        fmt::format("{}: found {}, expected an object with the key \"microphones\" and no other",
                    path, quotedJson(document)));
  }
  const json& rows = document.at("microphones");
  if (!rows.is_array() || rows.empty() || rows.size() > MAX_MICROPHONES) {
    throw DataError(
        fmt::format("{}: /microphones: found {}, expected a list of 1 to {} positions", path,
                    rows.is_array() ? fmt::format("{} elements", rows.size()) : quotedJson(rows),
                    MAX_MICROPHONES));
  }
  Positions microphones;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const auto position = readPosition(path, i, rows[i]);
    const auto same = std::find(microphones.begin(), microphones.end(), position);
    if (same != microphones.end()) {
      throw DataError(fmt::format(
          "{}: /microphones/{}: found {}, the place of /microphones/{}, expected different places",
          path, i, quotedJson(rows[i]), same - microphones.begin()));
    }
    microphones.push_back(position);
  }
  return microphones;
}
