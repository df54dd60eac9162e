#include "cli/StopSignals.h"

#include <unistd.h>

#include <array>
#include <csignal>
#include <string_view>

#include "audio/TemporaryFile.h"

namespace {

constexpr std::array STOPS = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t caughtSignal = 0;
pid_t owner = 0;  // a child made by fork has the list, but not the files

void noteSignal(int signal) { caughtSignal = signal; }

void removeFiles(int signal) {
  if (getpid() == owner) {
    Audio::TemporaryFile::removeAll();
    constexpr std::string_view TEXT = "zelk-sss: stopped by a signal; nothing unfinished is left\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, TEXT.data(), TEXT.size());
  }
  std::signal(signal, SIG_DFL);
  raise(signal);  // takes effect when this handler returns
}

/// Sets a handler unless the signal is ignored. Returns what was set before.
void (*handle(int signal, void (*handler)(int)))(int) {
  void (*const before)(int) = std::signal(signal, handler);
  if (before == SIG_IGN) std::signal(signal, SIG_IGN);
  return before;
}

}  // namespace

void removeUnfinishedFilesOnSignals() {
  owner = getpid();
  for (const int signal : STOPS) handle(signal, removeFiles);
}

NotedSignals::NotedSignals() {
  static_assert(STOPS.size() == COUNT);
  caughtSignal = 0;
  for (std::size_t i = 0; i < STOPS.size(); ++i) before[i] = handle(STOPS[i], noteSignal);
}

NotedSignals::~NotedSignals() {
  for (std::size_t i = 0; i < STOPS.size(); ++i) std::signal(STOPS[i], before[i]);
}

int NotedSignals::caught() { return caughtSignal; }
