#pragma once

/// From here on SIGINT, SIGTERM and SIGHUP remove the files that this process has not completed,
/// say so on standard error and then end the process as they always do. A signal that was ignored
/// when the process started (as by nohup) stays ignored.
void removeUnfinishedFilesOnSignals();

/// SIGINT, SIGTERM and SIGHUP are noted instead of ending the process, for one scope at a time.
class NotedSignals {
 public:
  NotedSignals();
  NotedSignals(const NotedSignals&) = delete;
  NotedSignals& operator=(const NotedSignals&) = delete;
  ~NotedSignals();

  /// The signal that came last, 0 without any.
  static int caught();

 private:
  static constexpr int COUNT = 3;
  void (*before[COUNT])(int);
};
