#pragma once

#include <CLI/CLI.hpp>

/// Adds `evaluate`: how well the methods separate in a list of simulated or measured situations, as
/// a table or as JSON. It runs when the command line is parsed and throws errors derived from
/// std::runtime_error.
void addEvaluateCommand(CLI::App& app);
