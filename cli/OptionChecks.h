#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "scene/TimeRange.h"

/// Checks of numbers given to options, for CLI::Option::check. Their messages say what was found
/// and expected; NaN and infinity pass none of them.
CLI::Validator isBetween(double least, double most);
CLI::Validator isPositive();
CLI::Validator isNonNegative();

/// The ranges of a text such as "0:1.5,4:5", in seconds. Throws DataError as parseTimeRanges does.
std::vector<Audio::TimeRange> timeRangesOf(std::string text);

/// Checks of such texts: of one range, or of any number.
CLI::Validator isTimeRange();
CLI::Validator isTimeRanges();

/// Throws CLI::ValidationError unless the name ends in .svg or .png, and DataError as checkOutput
/// does. To be called before the work starts.
void checkPicture(const std::string& path, bool overwrite, const std::vector<std::string>& inputs);

/// Adds the option --max-database-size SIZE, which sets for this process what the environment
/// variable ZELK_SSS_MAX_DATABASE sets for all: the nodes obey it, too.
void addDatabaseLimit(CLI::App& command);
