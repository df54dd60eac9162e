#include "cli/EvaluateCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "cli/Evaluation.h"
#include "cli/OptionChecks.h"
#include "cli/OutputCheck.h"

namespace {

const std::vector<std::string> METHODS = {"NULL", "LCMV", "GICA"};

struct Options {
  std::string plan;
  std::vector<std::string> methods;  ///< empty: the plan's, or METHODS
  std::vector<std::string> by;       ///< columns whose entries have rows of their own
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

  std::size_t widths[5] = {4, 5, 5, 8, 8};  // of the headings, at least
};

/// One row for all that differ in other columns than those of `by`, and the method's.
std::vector<EvaluationRow> pooled(const std::vector<EvaluationRow>& rows,
                                  const std::vector<std::string>& by) {
  const auto kept = [&by](const std::string& column, const std::string& entry) {
    return std::find(by.begin(), by.end(), column) == by.end() ? "all" : entry;
  };
  const auto names = [](const EvaluationRow& row) {
    return std::tie(row.room, row.array, row.noise, row.database, row.method);
  };
  std::vector<EvaluationRow> sums;
  for (const EvaluationRow& row : rows) {
    const EvaluationRow key{kept("room", row.room),
                            kept("array", row.array),
                            kept("noise", row.noise),
                            kept("database", row.database),
                            row.method,
                            {}};
    auto sum = std::find_if(sums.begin(), sums.end(),
                            [&](const EvaluationRow& other) { return names(other) == names(key); });
    if (sum == sums.end()) sum = sums.insert(sums.end(), key);
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

void run(const Options& options) {
  if (!options.output.empty()) checkOutput(options.output, options.force, {options.plan});
  const EvaluationPlan plan = EvaluationPlan::read(options.plan);
  std::vector<EvaluatedMethod> methods;
  for (const std::string& text : !options.methods.empty() ? options.methods
                                 : !plan.methods.empty()  ? plan.methods
                                                          : METHODS) {
    methods.push_back(evaluatedMethod(text));
  }
  const Table table(plan, methods);
  const bool isWhole = options.by.empty();
  // Each line as soon as it is known.
  const bool streams = options.output.empty() && !options.json && isWhole;
  std::string text = options.json ? "" : table.head();
  const auto show = [&](const EvaluationRow& row) {
    if (!options.json && isWhole) text += table.row(row);
    if (!streams) return;
    std::cout << text << std::flush;
    text.clear();
  };
  const std::vector<EvaluationRow> rows = evaluate(plan, methods, show);
  if (options.json) {
    text = jsonText(isWhole ? rows : pooled(rows, options.by));
  } else {
    for (const EvaluationRow& row :
         pooled(rows, isWhole ? std::vector<std::string>{"database"} : options.by)) {
      text += table.row(row);
    }
  }
  writeResult(text, options.output, options.force);
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
          "Names, separated by commas, instead of the file's (or NULL,LCMV,GICA); +2 after "
          "one refines it in two passes, options of separate may stand behind it")
      ->delimiter(',')
      ->allow_extra_args(false);
  command
      ->add_option("--by", options->by,
                   "Columns, separated by commas, that get rows of their own; methods always do")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->check(CLI::IsMember({"room", "array", "noise", "database", "method"}));
  command->add_flag("--json", options->json, "Write JSON instead of a table");
  command->add_option("-o,--output", options->output,
                      "File for the result instead of standard output");
  addDatabaseLimit(*command);
  command->add_flag("--force", options->force, "Replace an existing output file");
  command->callback([options] { run(*options); });
}
