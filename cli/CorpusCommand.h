#pragma once

#include <CLI/CLI.hpp>

/// `corpus`: many recordings on one machine or many. The Python package does it.
void addCorpusCommand(CLI::App& app);
