#pragma once

#include <ctime>

/// From here on every signal that would end the process removes the files that this process has
/// not completed, says so on standard error and then ends the process as it always does. A signal
/// that was ignored (as by nohup) or handled when the process started stays so.
void removeUnfinishedFilesOnSignals();

/// Adds what a signal is to remove, before what was added earlier. The function may call nothing
/// but what handlers may call. One that is there already is not added again.
void addUnfinishedFiles(void (*removeAll)());

/// SIGINT, SIGTERM and SIGHUP are noted instead of ending the process, for one scope at a time. The
/// first one leaves the scope most of a second to end by itself; then, or when a second one comes,
/// the process ends as without the scope.
class SignalWatch {
 public:
  SignalWatch();
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;
  ~SignalWatch();

  /// The signal that came, 0 without any.
  static int caught();

 private:
  static constexpr int COUNT = 3;
  void (*before[COUNT])(int);
  void (*beforeAlarm)(int);
  timer_t timer;
};
