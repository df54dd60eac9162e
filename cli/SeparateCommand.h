#pragma once

#include <CLI/CLI.hpp>

/// Adds `separate MIX --tf DB --sources SCENE --method NAME -o DIR`, which separates a recording
/// into one file per source of the scene.
void addSeparateCommand(CLI::App& app);
