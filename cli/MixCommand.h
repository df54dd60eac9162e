#pragma once

#include <CLI/CLI.hpp>

/// Adds `mix`: renders a scene's sources with measured or computed responses and writes the mixture
/// and the image of each source. It runs when the command line is parsed and throws errors derived
/// from std::runtime_error.
void addMixCommand(CLI::App& app);
