// Reads microphone positions from JSON.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "cli/tfdb/ArrayGeometry.h"
#include "toolbox/core/FileText.h"

namespace {

using nlohmann::json;

constexpr std::uintmax_t MAX_FILE = 1 << 20;  // bytes
constexpr std::size_t MAX_MICROPHONES = 1024;
constexpr int MAX_DEPTH = 8;
constexpr double MAX_COORDINATE = 100.0;  // metres
constexpr std::size_t LONGEST_QUOTE = 60;

std::string quoted(const json& value) {
  std::string text = value.dump(-1, ' ', true, json::error_handler_t::replace);
  if (text.size() > LONGEST_QUOTE) text = text.substr(0, LONGEST_QUOTE) + "…";
  return text;
}

std::string readText(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    throw GeometryError(fmt::format("{}: is no file, expected microphone positions in JSON", path));
  }
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (error || size > MAX_FILE) {
    throw GeometryError(fmt::format("{}: has {} bytes, expected at most {}", path, size, MAX_FILE));
  }
  return Audio::fileText(path);
}

json parse(const std::string& path) {
  // Deeper documents are wrong, and might be deep enough to exhaust the stack.
  const auto limitDepth = [&path](int depth, json::parse_event_t, json&) {
    if (depth <= MAX_DEPTH) return true;
    throw GeometryError(fmt::format("{}: is nested deeper than {} levels, expected {}", path,
                                    MAX_DEPTH, "{\"microphones\": [[x, y, z], …]}"));
  };
  try {
    return json::parse(readText(path), limitDepth);
  } catch (const json::exception& error) {
    const std::string reason = error.what();  // "[json.exception.…] the reason"
    const std::size_t bracket = reason.find("] ");
    throw GeometryError(
        fmt::format("{}: is no valid JSON: {}", path,
                    bracket == std::string::npos ? reason : reason.substr(bracket + 2)));
  }
}

std::array<double, 3> readPosition(const std::string& path, std::size_t index, const json& row) {
  const bool sound =
      row.is_array() && row.size() == 3 && std::all_of(row.begin(), row.end(), [](const json& x) {
        return x.is_number() && std::abs(x.get<double>()) <= MAX_COORDINATE;
      });
  if (!sound) {
    throw GeometryError(
        fmt::format("{}: /microphones/{}: found {}, expected [x, y, z] in metres, each within ±{}",
                    path, index, quoted(row), MAX_COORDINATE));
  }
  return row.get<std::array<double, 3>>();
}

}  // namespace

Positions readMicrophones(const std::string& path) {
  const json document = parse(path);
  if (!document.is_object() || document.size() != 1 || !document.contains("microphones")) {
    throw GeometryError(
        fmt::format("{}: found {}, expected an object with the key \"microphones\" and no other",
                    path, quoted(document)));
  }
  const json& rows = document.at("microphones");
  if (!rows.is_array() || rows.empty() || rows.size() > MAX_MICROPHONES) {
    throw GeometryError(fmt::format(
        "{}: /microphones: found {}, expected a list of 1 to {} positions", path,
        rows.is_array() ? fmt::format("{} elements", rows.size()) : quoted(rows), MAX_MICROPHONES));
  }
  Positions microphones;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const auto position = readPosition(path, i, rows[i]);
    const auto same = std::find(microphones.begin(), microphones.end(), position);
    if (same != microphones.end()) {
      throw GeometryError(fmt::format(
          "{}: /microphones/{}: found {}, the place of /microphones/{}, expected different places",
          path, i, quoted(rows[i]), same - microphones.begin()));
    }
    microphones.push_back(position);
  }
  return microphones;
}
