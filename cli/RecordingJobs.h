#pragma once

#include <functional>
#include <string>
#include <vector>

/// Work on recordings, each in a process of its own, some at a time.
struct RecordingJobs {
  std::vector<std::string> recordings;  ///< names, for messages
  std::function<void(std::size_t)>
      work;              ///< for the recording of this number; what it throws fails
  int processes = 1;     ///< at a time
  bool isQuiet = false;  ///< no summary when all goes well
};

/// Runs all of them. What a process says is held back until it ends, so that the reports do not
/// mix. SIGINT, SIGTERM and SIGHUP are passed on to the processes that run, once each, and no more
/// are begun; should this process be killed, they end, too. At last a line on standard output says
/// how many were separated. Throws DataError naming the recordings that failed, and
/// std::runtime_error after a signal.
void runJobs(const RecordingJobs& jobs);
