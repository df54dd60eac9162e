#pragma once

#include <CLI/CLI.hpp>

/// Adds `pattern`: draws how loud a method's separation matrices let each direction through. It
/// runs when the command line is parsed and throws errors derived from std::runtime_error.
void addPatternCommand(CLI::App& app);
