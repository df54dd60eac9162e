#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// The string literals of one C++ statement, adjacent ones joined, escapes resolved.
struct SourceStatement {
  std::string place;               ///< "<file>:<line>" of its end
  std::vector<std::string> texts;  ///< all of them
  std::vector<std::string> told;   ///< those that a person can be shown as an error or warning
};

/// Reads a source file. A literal counts as told
/// - behind `throw`, `std::cerr <<`, `out <<` and `err <<`, and in nodes/ behind `std::cout <<`;
/// - in the arguments of a function that reports: fail, refuse, misuse, check, number, warn, note,
///   report, puts, and of those that print on stderr;
/// - in what is put at the end of a list called warnings, remarks, findings or notes;
/// - as the value of a variable called `expected`.
std::vector<SourceStatement> readStatements(const std::filesystem::path& file);
