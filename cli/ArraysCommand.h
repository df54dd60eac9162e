#pragma once

#include <CLI/CLI.hpp>

/// Adds `arrays [NAME] [-o PICTURE]`, which lists the microphone arrays that --array knows, says
/// where the microphones of one are, and draws it.
void addArraysCommand(CLI::App& app);

/// A check of such names, for CLI::Option::check.
CLI::Validator isArrayName();
