#pragma once

#include <CLI/CLI.hpp>

/// Adds the command "report", one page that plays and shows separations.
void addReportCommand(CLI::App& app);
