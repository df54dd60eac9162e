#pragma once

#include <CLI/CLI.hpp>

/// Adds `live --tf DB --sources SCENE --method NAME`, which separates what a JACK server gives.
void addLiveCommand(CLI::App& app);
