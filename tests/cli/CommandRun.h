#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

/// What a run of the command `zelk-sss` as a process of its own left behind.
struct CommandRun {
  int status = -1;     ///< exit status; −1 when a signal ended it
  int signal = 0;      ///< which one did
  std::string output;  ///< of standard output
  std::string errors;  ///< of standard error
};

/// The command of the build tree, running with its outputs captured (so neither is a terminal).
class RunningCommand {
 public:
  /// In a folder; "": in that of the test. Standard input is a file or FIFO.
  explicit RunningCommand(const std::vector<std::string>& arguments, const std::string& folder = "",
                          const std::string& input = "/dev/null");
  RunningCommand(const RunningCommand&) = delete;
  RunningCommand& operator=(const RunningCommand&) = delete;
  /// Kills it unless wait() was called.
  ~RunningCommand();

  int id() const { return process; }
  void send(int signal) const;
  std::size_t outputSize() const;  ///< bytes so far
  CommandRun wait();

 private:
  using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

  File output{std::tmpfile(), std::fclose};
  File errors{std::tmpfile(), std::fclose};
  int process = 0;  // 0: ended
};

/// Runs the command with these arguments to its end.
CommandRun runCommand(const std::vector<std::string>& arguments, const std::string& folder = "",
                      const std::string& input = "/dev/null");
