#include "cli/OptionChecks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <utility>

#include "audio/OutputFile.h"
#include "dsp/AudioError.h"

namespace {

CLI::Validator numberCheck(const std::string& shownInHelp, const std::string& expected,
                           const std::function<bool(double)>& isGood) {
  const auto check = [=](const std::string& text) -> std::string {
    double value = 0.0;
    if (CLI::detail::lexical_cast(text, value) && isGood(value)) return {};
    return fmt::format("\"{}\", expected {}", text, expected);
  };
  return {check, shownInHelp};
}

CLI::Validator timeCheck(const std::string& expected, std::size_t most) {
  const auto check = [=](const std::string& text) -> std::string {
    try {
      if (timeRangesOf(text).size() <= most) return {};
    } catch (const Audio::AudioError&) {  // speaks of a node's parameter
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

void checkPicture(const std::string& path, bool overwrite) {
  const std::filesystem::path ending = std::filesystem::path(path).extension();
  if (ending != ".svg" && ending != ".png") {
    throw CLI::ValidationError(
        "--output", fmt::format("\"{}\", expected a name that ends in .svg or .png", path));
  }
  checkOutput(path, overwrite);
}
