#include "cli/ChildProcess.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <new>
#include <string_view>

#include "cli/StopSignals.h"
#include "dsp/DataError.h"
#include "fileio/SofaFile.h"

namespace {

constexpr int OUT_OF_MEMORY = 3;
constexpr int FAILED = 4;
volatile pid_t running = 0;  // the child process of which the end is awaited

/// For the handler of a signal that ends this process: a child that lives on would make the file
/// again whose temporary name is removed.
void endChild() {
  if (running <= 0) return;
  kill(running, SIGKILL);
  waitpid(running, nullptr, 0);
}

/// fork, which no signal finds half done.
pid_t startChild() {
  addUnfinishedFiles(endChild);
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, &before);
  const pid_t child = fork();
  running = child;
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return child;
}

constexpr std::size_t MAX_REASON = 4096;  // a pipe takes so much without anyone reading it

/// The two ends of a pipe, closed at the end of the scope.
struct Pipe {
  Pipe() = default;
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    for (int& end : ends) close(end);
  }
  void close(int& end) {
    if (end >= 0) ::close(end);
    end = -1;
  }
  int ends[2] = {-1, -1};  // to read from, to write to
};

[[noreturn]] void runChild(const std::function<void()>& work, int reasonPipe) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // an interrupted command leaves no reader behind
  // The parent says what is wrong, not the libraries below.
  const int null = open("/dev/null", O_WRONLY);
  if (null >= 0) dup2(null, STDERR_FILENO);
  try {
    work();
  } catch (const std::bad_alloc&) {
    _exit(OUT_OF_MEMORY);
  } catch (const std::exception& error) {
    const std::string_view reason = std::string_view(error.what()).substr(0, MAX_REASON);
    [[maybe_unused]] const ssize_t written = write(reasonPipe, reason.data(), reason.size());
    _exit(FAILED);  // without a reason, if writing failed
  }
  _exit(0);
}

std::string readReason(int reasonPipe) {
  std::string reason(MAX_REASON, '\0');
  const ssize_t count = read(reasonPipe, reason.data(), reason.size());
  reason.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return reason;
}

/// How a child process ended, as waitpid says, and the text of the exception that ended it.
struct ChildEnd {
  int status = 0;
  std::string reason;
};

ChildEnd runInChild(const std::string& path, const std::function<void()>& work) {
  Pipe reasons;
  const pid_t child = pipe2(reasons.ends, O_CLOEXEC) == 0 ? startChild() : -1;
  if (child < 0) {
    throw DataError(
        fmt::format("{}: no process could be made for it: {}", path, std::strerror(errno)));
  }
  if (child == 0) runChild(work, reasons.ends[1]);
  reasons.close(reasons.ends[1]);
  ChildEnd end;
  while (waitpid(child, &end.status, 0) < 0) {
    if (errno != EINTR) {
      throw DataError(fmt::format("{}: waiting for it: {}", path, std::strerror(errno)));
    }
  }
  running = 0;
  const bool gaveReason = WIFEXITED(end.status) && WEXITSTATUS(end.status) == FAILED;
  if (gaveReason) end.reason = readReason(reasons.ends[0]);
  return end;
}

}  // namespace

void writeInChild(const std::string& path, const std::function<void()>& work) {
  const auto [status, reason] = runInChild(path, work);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return;
  if (WIFEXITED(status) && WEXITSTATUS(status) == OUT_OF_MEMORY) throw std::bad_alloc();
  throw DataError(!reason.empty()
                      ? reason
                      : fmt::format("{}: cannot write: the library for it fails (is there room on "
                                    "the disk?)",
                                    path));
}
