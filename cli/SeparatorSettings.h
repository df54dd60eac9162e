#pragma once

#include <string>

#include "cli/SeparationInputs.h"
#include "cli/SeparationSettings.h"
#include "separation/Separator.h"
#include "separation/Settings.h"

/// What the separator takes of a separation's settings: all but the noise that is measured in
/// advance. Who is listed as noise is up to the caller.
Separation::Settings separatorSettings(const SeparationSettings& settings);

/// The separator, with the noise measured that is to be measured in advance; uses up the inputs'
/// noise, database and responses. Throws DataError and SettingError.
Separation::Separator makeSeparator(const SeparationSettings& settings, SeparationInputs& inputs);

/// A value that the separator refuses, in the words of the command line.
std::string refusalOf(const Separation::SettingError& error);
