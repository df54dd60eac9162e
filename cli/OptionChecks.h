#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "audio/Channels.h"

/// Checks of numbers given to options, for CLI::Option::check. Their messages say what was found
/// and expected, and NaN passes none of them.
CLI::Validator isBetween(double least, double most);
CLI::Validator isPositive();
CLI::Validator isNonNegative();

/// The ranges of a text such as "0:1.5,4:5", in seconds. Throws AudioError as parseTimeRanges does.
std::vector<Audio::TimeRange> timeRangesOf(std::string text);

/// Checks of such texts: of one range, or of any number.
CLI::Validator isTimeRange();
CLI::Validator isTimeRanges();

/// Throws CLI::ValidationError unless the name ends in .svg or .png, and OutputError as checkOutput
/// does. To be called before the work starts.
void checkPicture(const std::string& path, bool overwrite);
