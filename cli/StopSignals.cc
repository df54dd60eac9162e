#include "cli/StopSignals.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <string_view>

#include "audio/OutputFile.h"

namespace {

constexpr std::array STOPS = {SIGINT, SIGTERM, SIGHUP};

// Which end no process unless it asks for them, or cannot be handled.
constexpr std::array OTHERS = {SIGCHLD, SIGCONT, SIGKILL, SIGSTOP, SIGTSTP,
                               SIGTTIN, SIGTTOU, SIGURG,  SIGWINCH};

constexpr timespec PATIENCE = {0, 800'000'000};  // leaves time to end within one second

volatile std::sig_atomic_t caughtSignal = 0;
pid_t owner = 0;  // a child made by fork has the list, but not the files
std::array<void (*)(), 8> removers = {};
timer_t patienceTimer = {};

void endNow(int signal) {
  if (getpid() == owner) {
    for (auto remover = removers.rbegin(); remover != removers.rend(); ++remover) {
      if (*remover) (*remover)();
    }
    constexpr std::string_view TEXT = "zelk-sss: stopped by a signal; nothing unfinished is left\n";
    // Nobody reads what follows SIGPIPE.
    if (signal != SIGPIPE) {
      [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, TEXT.data(), TEXT.size());
    }
  }
  std::signal(signal, SIG_DFL);
  raise(signal);  // takes effect when this handler returns
}

void noteSignal(int signal) {
  if (caughtSignal != 0) {
    endNow(signal);
    return;
  }
  caughtSignal = signal;
  const itimerspec once = {{0, 0}, PATIENCE};
  timer_settime(patienceTimer, 0, &once, nullptr);
}

void endPatience(int signal) { endNow(caughtSignal != 0 ? caughtSignal : signal); }

/// Sets a handler unless the signal is ignored. Returns what was set before.
void (*handle(int signal, void (*handler)(int)))(int) {
  void (*const before)(int) = std::signal(signal, handler);
  if (before == SIG_IGN) std::signal(signal, SIG_IGN);
  return before;
}

}  // namespace

void addUnfinishedFiles(void (*removeAll)()) {
  for (auto& remover : removers) {
    if (remover == removeAll) return;
    if (remover) continue;
    remover = removeAll;
    return;
  }
}

void removeUnfinishedFilesOnSignals() {
  owner = getpid();
  addUnfinishedFiles([] { Audio::OutputFile::removeAll(); });
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    if (std::find(OTHERS.begin(), OTHERS.end(), signal) != OTHERS.end()) continue;
    struct sigaction now {};
    const bool ends = sigaction(signal, nullptr, &now) == 0 && now.sa_handler == SIG_DFL;
    if (ends) std::signal(signal, endNow);
  }
}

SignalWatch::SignalWatch() {
  static_assert(STOPS.size() == COUNT);
  caughtSignal = 0;
  beforeAlarm = std::signal(SIGALRM, endPatience);
  sigevent atTheEnd = {};
  atTheEnd.sigev_notify = SIGEV_SIGNAL;
  atTheEnd.sigev_signo = SIGALRM;
  timer_create(CLOCK_MONOTONIC, &atTheEnd, &timer);
  patienceTimer = timer;
  for (std::size_t i = 0; i < STOPS.size(); ++i) before[i] = handle(STOPS[i], noteSignal);
}

SignalWatch::~SignalWatch() {
  for (std::size_t i = 0; i < STOPS.size(); ++i) std::signal(STOPS[i], before[i]);
  timer_delete(timer);
  std::signal(SIGALRM, beforeAlarm);
}

int SignalWatch::caught() { return caughtSignal; }
