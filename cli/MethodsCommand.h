#pragma once

#include <CLI/CLI.hpp>

/// Adds `methods`, which lists every method: when to choose it, its parameters and their defaults.
void addMethodsCommand(CLI::App& app);
