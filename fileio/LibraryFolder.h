#pragma once

#include <string>

/// The path of a file that is installed in the folder of libzelkfileio.so.
std::string besideLibrary(const std::string& name);
