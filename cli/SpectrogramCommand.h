#pragma once

#include <CLI/CLI.hpp>

/// Adds `spectrogram`: draws the levels of recordings by time and frequency. It runs when the
/// command line is parsed and throws errors derived from std::runtime_error.
void addSpectrogramCommand(CLI::App& app);
