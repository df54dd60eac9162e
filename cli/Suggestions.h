#pragma once

#include <CLI/CLI.hpp>
#include <string>

/// What a command line has too much, in the order typed, with the commands or options that were
/// probably meant; "" if nothing is left over.
std::string unexpectedArguments(const CLI::App& app);
