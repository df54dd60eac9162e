#pragma once

#include <string>

#include "cli/SeparationSettings.h"
#include "separation/Settings.h"

/// What the separator takes of a separation's settings: all but the noise that is measured in
/// advance. Who is listed as noise is up to the caller.
Separation::Settings separatorSettings(const SeparationSettings& settings);

/// A value that the separator refuses, in the words of the command line.
std::string refusalOf(const Separation::SettingError& error);
