#pragma once

#include <CLI/CLI.hpp>

/// Adds `run NETWORK [ARGS…]`, which runs a network document with the plug-ins.
void addRunCommand(CLI::App& app);
