#include "cli/EvaluateCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "audio/OutputFile.h"
#include "cli/Evaluation.h"
#include "cli/OptionChecks.h"
#include "cli/OutputCheck.h"
#include "cli/SeparationOptions.h"

namespace {

constexpr int MAX_PASSES = 100;

struct Options {
  std::string plan;
  std::vector<std::string> methods = {"NULL", "LCMV", "GICA"};
  bool json = false;
  std::string output;
  bool force = false;
};

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t half = values.size() / 2;
  return values.size() % 2 == 1 ? values[half] : 0.5 * (values[half - 1] + values[half]);
}

/// Median and worst of a score, which sdr or sir is taken by.
struct Summary {
  Summary(const std::vector<SourceScore>& scores, double SourceScore::*score) {
    for (const SourceScore& one : scores) all.push_back(one.*score);
    middle = median(all);
    worst = *std::min_element(all.begin(), all.end());
  }

  std::vector<double> all;
  double middle;
  double worst;
};

/// The table's columns of names are as wide as the longest one in the plan.
class Table {
 public:
  Table(const EvaluationPlan& plan, const std::vector<EvaluatedMethod>& methods) {
    const auto widen = [](std::size_t& width, const auto& entries) {
      for (const auto& entry : entries) width = std::max(width, entry.name.size());
    };
    widen(widths[0], plan.rooms);
    widen(widths[1], plan.arrays);
    widen(widths[2], plan.noises);
    widen(widths[3], plan.databases);
    widen(widths[4], methods);
  }

  std::string head() const {
    const std::string names = line("room", "array", "noise", "database", "method");
    return fmt::format("{:{}}  {:>15}  {:>15}\n", "", names.size(), "SI-SIR (dB)", "SI-SDR (dB)") +
           fmt::format("{}  {:>8} {:>6}  {:>8} {:>6}\n", names, "median", "worst", "median",
                       "worst");
  }

  std::string row(const EvaluationRow& row) const {
    const Summary sir(row.scores, &SourceScore::sir);
    const Summary sdr(row.scores, &SourceScore::sdr);
    return fmt::format("{}  {:>8.1f} {:>6.1f}  {:>8.1f} {:>6.1f}\n",
                       line(row.room, row.array, row.noise, row.database, row.method), sir.middle,
                       sir.worst, sdr.middle, sdr.worst);
  }

 private:
  std::string line(const std::string& room, const std::string& array, const std::string& noise,
                   const std::string& database, const std::string& method) const {
    return fmt::format("{:{}}  {:{}}  {:{}}  {:{}}  {:{}}", room, widths[0], array, widths[1],
                       noise, widths[2], database, widths[3], method, widths[4]);
  }

  std::size_t widths[5] = {4, 5, 5, 8, 8};  // of the headings
};

/// Rows of the same database and method, all rooms, arrays and noises in one.
std::vector<EvaluationRow> overAll(const std::vector<EvaluationRow>& rows) {
  std::vector<EvaluationRow> sums;
  for (const EvaluationRow& row : rows) {
    auto sum = std::find_if(sums.begin(), sums.end(), [&](const EvaluationRow& other) {
      return other.database == row.database && other.method == row.method;
    });
    if (sum == sums.end()) {
      sum = sums.insert(sums.end(), {"all", "all", "all", row.database, row.method, {}});
    }
    sum->scores.insert(sum->scores.end(), row.scores.begin(), row.scores.end());
  }
  return sums;
}

nlohmann::ordered_json jsonOf(const std::vector<SourceScore>& scores, double SourceScore::*score) {
  const auto number = [](double x) -> nlohmann::ordered_json {
    if (std::isfinite(x)) return x;
    return x < 0.0 ? "-inf" : "inf";
  };
  const Summary summary(scores, score);
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  for (const double x : summary.all) all.push_back(number(x));
  return {{"median", number(summary.middle)}, {"worst", number(summary.worst)}, {"all", all}};
}

std::string jsonText(const std::vector<EvaluationRow>& rows) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const EvaluationRow& row : rows) {
    list.push_back({{"room", row.room},
                    {"array", row.array},
                    {"noise", row.noise},
                    {"database", row.database},
                    {"method", row.method},
                    {"si_sir", jsonOf(row.scores, &SourceScore::sir)},
                    {"si_sdr", jsonOf(row.scores, &SourceScore::sdr)}});
  }
  return nlohmann::ordered_json{{"rows", list}}.dump(2) + "\n";
}

/// NAME, NAME:PARAMETER=VALUE for each parameter that is not the default, +PASSES behind it.
EvaluatedMethod methodOf(const std::string& text) {
  EvaluatedMethod method{text};
  const std::size_t plus = text.find('+');
  if (plus != std::string::npos) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data() + plus + 1, end, method.refinement);
    if (result.ec != std::errc() || result.ptr != end || method.refinement < 1 ||
        method.refinement > MAX_PASSES) {
      throw CLI::ValidationError(
          "--methods", fmt::format("\"{}\", expected a name, or a name, + and 1 to {} passes", text,
                                   MAX_PASSES));
    }
  }
  const std::vector<std::string> parts = CLI::detail::split(text.substr(0, plus), ':');
  try {
    method.method = &methodNamed(parts[0]);
  } catch (const std::invalid_argument& error) {
    throw CLI::ValidationError(error.what());
  }
  for (std::size_t i = 1; i < parts.size(); ++i) {
    addMethodParameter("--methods", parts[i], *method.method, method.parameters);
  }
  return method;
}

void run(const Options& options) {
  std::vector<EvaluatedMethod> methods;
  for (const std::string& text : options.methods) methods.push_back(methodOf(text));
  if (!options.output.empty()) checkOutput(options.output, options.force, {options.plan});
  const EvaluationPlan plan = EvaluationPlan::read(options.plan);
  const Table table(plan, methods);
  const bool streams = options.output.empty() && !options.json;  // each line as soon as it is known
  std::string text = options.json ? "" : table.head();
  const auto show = [&](const EvaluationRow& row) {
    if (!options.json) text += table.row(row);
    if (!streams) return;
    std::cout << text << std::flush;
    text.clear();
  };
  const std::vector<EvaluationRow> rows = evaluate(plan, methods, show);
  if (options.json) {
    text = jsonText(rows);
  } else {
    for (const EvaluationRow& row : overAll(rows)) text += table.row(row);
  }
  if (options.output.empty()) {
    std::cout << text;
    return;
  }
  Audio::OutputFile file(options.output, options.force);
  file.write(text);
  file.finish();
}

}  // namespace

void addEvaluateCommand(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "evaluate", "Say how well methods separate, over a list of rooms, arrays, scenes and noises");
  command->add_option("SCENES", options->plan, "What to go through (JSON)")->required();
  command
      ->add_option(
          "--methods", options->methods,
          "Names, separated by commas; :NAME=VALUE after one sets a parameter, +2 refines in "
          "two passes")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->capture_default_str();
  command->add_flag("--json", options->json, "Write JSON instead of a table");
  command->add_option("-o,--output", options->output,
                      "File for the result instead of standard output");
  addDatabaseLimit(*command);
  command->add_flag("--force", options->force, "Replace an existing output file");
  command->callback([options] { run(*options); });
}
