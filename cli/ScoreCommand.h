#pragma once

#include <CLI/CLI.hpp>

/// Adds `score`: scale-invariant scores of estimated sources against references, as a table or as
/// JSON. It runs when the command line is parsed and throws errors derived from std::runtime_error.
void addScoreCommand(CLI::App& app);
