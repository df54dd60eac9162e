#pragma once

#include <cstddef>
#include <string>

/// A text from a file, fit to be shown on one line: what is not printable ASCII becomes '?', and
/// only the first `longest` characters are kept.
std::string printable(const std::string& text, std::size_t longest = 80);

/// "<file>: <text>", in which control characters of the name are replaced.
std::string aboutFile(const std::string& path, const std::string& text);
