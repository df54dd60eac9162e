#include "cli/OptionChecks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <utility>
#include "cli/OutputCheck.h"
#include "dsp/DataError.h"
#include "fileio/SofaLimits.h"

namespace {

CLI::Validator numberCheck(const std::string& shownInHelp, const std::string& expected,
                           const std::function<bool(double)>& isGood) {
  const auto check = [=](const std::string& text) -> std::string {
    double value = 0.0;
    const bool isNumber = CLI::detail::lexical_cast(text, value) && std::isfinite(value);
    if (isNumber && isGood(value)) return {};
    return fmt::format("\"{}\", expected {}", text, expected);
  };
  return {check, shownInHelp};
}

CLI::Validator timeCheck(const std::string& expected, std::size_t most) {
  const auto check = [=](const std::string& text) -> std::string {
    try {
      if (timeRangesOf(text).size() <= most) return {};
    } catch (const DataError&) {  // speaks of a node's parameter
    }
    return fmt::format("\"{}\", expected {}", text, expected);
  };
  return {check, ""};
}

}  // namespace

CLI::Validator isBetween(double least, double most) {
  return numberCheck(fmt::format("in [{} - {}]", least, most), fmt::format("{} to {}", least, most),
                     [=](double value) { return value >= least && value <= most; });
}

CLI::Validator isPositive() {
  return numberCheck("POSITIVE", "a number above 0", [](double value) { return value > 0.0; });
}

CLI::Validator isNonNegative() {
  return numberCheck("NONNEGATIVE", "0 or more", [](double value) { return value >= 0.0; });
}

std::vector<Audio::TimeRange> timeRangesOf(std::string text) {
  std::replace(text.begin(), text.end(), ':', '-');
  return Audio::parseTimeRanges(text);
}

CLI::Validator isTimeRange() {
  return timeCheck("seconds BEGIN:END with 0 <= BEGIN < END, such as 1.5:7", 1);
}

CLI::Validator isTimeRanges() {
  return timeCheck("seconds BEGIN:END with 0 <= BEGIN < END, such as 0:1.5,4:5", SIZE_MAX);
}

void checkPicture(const std::string& path, bool overwrite, const std::vector<std::string>& inputs) {
  const std::filesystem::path ending = std::filesystem::path(path).extension();
  if (ending != ".svg" && ending != ".png") {
    throw CLI::ValidationError(
        "--output", fmt::format("\"{}\", expected a name that ends in .svg or .png", path));
  }
  checkOutput(path, overwrite, inputs);
}

void addDatabaseLimit(CLI::App& command) {
  const char* option = "--max-database-size";
  command
      .add_option_function<std::string>(
          option,
          [option](const std::string& size) {
            try {
              parseDatabaseLimit(option, size);
            } catch (const DataError& error) {
              throw CLI::ValidationError(error.what());
            }
            setenv(DATABASE_LIMIT_VARIABLE, size.c_str(), 1);
          },
          "Most bytes that a database may have in memory (K, M, G, T: KiB to TiB), 2G unless the "
          "environment variable ZELK_SSS_MAX_DATABASE says otherwise")
      ->type_name("SIZE");
}
