#pragma once

#include <string>
#include <vector>

/// What a run of the command `zelk-sss` as a process of its own left behind.
struct CommandRun {
  int status = -1;     ///< exit status; −1 when it was killed
  std::string output;  ///< of standard output
  std::string errors;  ///< of standard error
};

/// Runs the command of the build tree with these arguments, its outputs captured (so neither is a
/// terminal), and waits for its end.
CommandRun runCommand(const std::vector<std::string>& arguments);
