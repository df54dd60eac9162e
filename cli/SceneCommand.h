#pragma once

#include <CLI/CLI.hpp>

/// Adds the command "scene", which draws who is where and when.
void addSceneCommand(CLI::App& app);
