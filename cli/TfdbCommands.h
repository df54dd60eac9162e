#pragma once

#include <CLI/CLI.hpp>

/// Adds `tfdb` with `import`, `geometry`, `room`, `info` and `check`: makes and examines
/// transfer-function databases. They run when the command line is parsed and throw errors derived
/// from std::runtime_error. Results go to standard output, warnings to standard error.
void addTfdbCommands(CLI::App& app);
