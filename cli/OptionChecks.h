#pragma once

#include <CLI/CLI.hpp>

/// Checks of numbers given to options, for CLI::Option::check. Their messages say what was found
/// and expected, and NaN passes none of them.
CLI::Validator isBetween(double least, double most);
CLI::Validator isPositive();
CLI::Validator isNonNegative();
