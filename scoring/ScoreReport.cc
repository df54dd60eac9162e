#include "scoring/ScoreReport.h"

#include <fmt/format.h>

#include <cmath>
#include <nlohmann/json.hpp>

namespace {

/// One column of the report: its heading, its JSON name and its value for a source.
struct Column {
  const char* heading;
  const char* key;
  double (*value)(const ScoreReport::Source&);
};

const std::vector<Column> SCORES = {
    {"SI-SDR", "si_sdr", [](const ScoreReport::Source& s) { return s.score.sdr; }},
    {"SI-SIR", "si_sir", [](const ScoreReport::Source& s) { return s.score.sir; }},
    {"SI-SAR", "si_sar", [](const ScoreReport::Source& s) { return s.score.sar; }}};
const std::vector<Column> IMPROVEMENTS = {
    {"SI-SDRi", "si_sdr_improvement",
     [](const ScoreReport::Source& s) { return s.score.sdr - s.mixture->sdr; }},
    {"SI-SIRi", "si_sir_improvement",
     [](const ScoreReport::Source& s) { return s.score.sir - s.mixture->sir; }}};

std::vector<Column> columnsOf(const ScoreReport& report) {
  std::vector<Column> columns = SCORES;
  if (!report.sources.empty() && report.sources.front().mixture) {
    columns.insert(columns.end(), IMPROVEMENTS.begin(), IMPROVEMENTS.end());
  }
  return columns;
}

double mean(const ScoreReport& report, const Column& column) {
  double sum = 0.0;
  for (const ScoreReport::Source& source : report.sources) sum += column.value(source);
  return sum / static_cast<double>(report.sources.size());
}

std::string text(double value) {
  if (std::isnan(value)) return "n/a";
  if (std::isinf(value)) return value > 0.0 ? "inf" : "-inf";
  return fmt::format("{:.2f}", value);
}

nlohmann::ordered_json jsonValue(double value) {
  if (std::isnan(value)) return nullptr;
  if (std::isinf(value)) return value > 0.0 ? "inf" : "-inf";
  return value;
}

}  // namespace

std::string ScoreReport::table() const {
  const std::vector<Column> columns = columnsOf(*this);
  std::string out = "source";
  for (const Column& column : columns) out += fmt::format("  {:>7}", column.heading);
  out += "  estimate\n";
  for (std::size_t i = 0; i < sources.size(); ++i) {
    out += fmt::format("{:>6}", i + 1);
    for (const Column& column : columns)
      out += fmt::format("  {:>7}", text(column.value(sources[i])));
    out += fmt::format("  {}\n", sources[i].estimate);
  }
  if (sources.size() > 1) {
    out += fmt::format("{:>6}", "mean");
    for (const Column& column : columns) out += fmt::format("  {:>7}", text(mean(*this, column)));
    out += "\n";
  }
  return out;
}

std::string ScoreReport::json() const {
  nlohmann::ordered_json out = {{"sampling_rate", samplingRate},
                                {"samples", samples},
                                {"filter_taps", filterTaps},
                                {"notes", notes},
                                {"sources", nlohmann::ordered_json::array()}};
  const std::vector<Column> columns = columnsOf(*this);
  for (const Source& source : sources) {
    nlohmann::ordered_json entry = {{"reference", source.reference}, {"estimate", source.estimate}};
    for (const Column& column : columns) entry[column.key] = jsonValue(column.value(source));
    if (source.mixture) {
      entry["mixture"] = {{"si_sdr", jsonValue(source.mixture->sdr)},
                          {"si_sir", jsonValue(source.mixture->sir)},
                          {"si_sar", jsonValue(source.mixture->sar)}};
    }
    out["sources"].push_back(std::move(entry));
  }
  for (const Column& column : columns) out["mean"][column.key] = jsonValue(mean(*this, column));
  // File names need not be UTF-8.
  return out.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}
