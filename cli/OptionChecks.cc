#include "cli/OptionChecks.h"

#include <fmt/format.h>

#include <functional>
#include <string>

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
