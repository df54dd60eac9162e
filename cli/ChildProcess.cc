#include "cli/ChildProcess.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <new>
#include <string_view>

#include "fileio/SofaFile.h"

namespace {

constexpr rlim_t SECONDS = 30;  // of processor time
constexpr rlim_t GIBIBYTES = 6;
constexpr int OUT_OF_MEMORY = 3;
constexpr int FAILED = 4;
constexpr std::size_t LONGEST_REASON = 4096;  // a pipe takes so much without anyone reading it

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

void limitResources() {
  const rlimit time = {SECONDS, SECONDS + 2};  // SIGXCPU first, which says why
  setrlimit(RLIMIT_CPU, &time);
  const rlimit noCore = {0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
#ifndef __SANITIZE_ADDRESS__  // which reserves terabytes of addresses
  const rlimit memory = {GIBIBYTES << 30, GIBIBYTES << 30};
  setrlimit(RLIMIT_AS, &memory);
#endif
}

[[noreturn]] void runChild(const std::function<void()>& work, bool limited, int reasonPipe) {
  if (limited) limitResources();
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // an interrupted command leaves no reader behind
  // The parent says what is wrong, not the libraries below.
  const int null = open("/dev/null", O_WRONLY);
  if (null >= 0) dup2(null, STDERR_FILENO);
  try {
    work();
  } catch (const std::bad_alloc&) {
    _exit(OUT_OF_MEMORY);
  } catch (const std::exception& error) {
    const std::string_view reason = std::string_view(error.what()).substr(0, LONGEST_REASON);
    [[maybe_unused]] const ssize_t written = write(reasonPipe, reason.data(), reason.size());
    _exit(FAILED);  // without a reason, if writing failed
  }
  _exit(0);
}

std::string readReason(int reasonPipe) {
  std::string reason(LONGEST_REASON, '\0');
  const ssize_t count = read(reasonPipe, reason.data(), reason.size());
  reason.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return reason;
}

/// How a child process ended, as waitpid says, and the text of the exception that ended it.
struct ChildEnd {
  int status = 0;
  std::string reason;
};

ChildEnd runInChild(const std::string& path, const std::function<void()>& work, bool limited) {
  Pipe reasons;
  const pid_t child = pipe2(reasons.ends, O_CLOEXEC) == 0 ? fork() : -1;
  if (child < 0) {
    throw SofaError(
        fmt::format("{}: no process could be made for it: {}", path, std::strerror(errno)));
  }
  if (child == 0) runChild(work, limited, reasons.ends[1]);
  reasons.close(reasons.ends[1]);
  ChildEnd end;
  while (waitpid(child, &end.status, 0) < 0) {
    if (errno != EINTR) {
      throw SofaError(fmt::format("{}: waiting for it: {}", path, std::strerror(errno)));
    }
  }
  const bool gaveReason = WIFEXITED(end.status) && WEXITSTATUS(end.status) == FAILED;
  if (gaveReason) end.reason = readReason(reasons.ends[0]);
  return end;
}

}  // namespace

void tryInChild(const std::string& path, const std::function<void()>& work) {
  const auto [status, reason] = runInChild(path, work, true);
  const std::string expected = "expected a sound netCDF-4 file";
  if (WIFSIGNALED(status)) {
    const int signal = WTERMSIG(status);
    throw SofaError(
        signal == SIGXCPU
            ? fmt::format("{}: reading it takes more than {} s, {}", path, SECONDS, expected)
            : fmt::format("{}: reading it crashes ({}), {}", path, strsignal(signal), expected));
  }
  if (WEXITSTATUS(status) == OUT_OF_MEMORY) {
    throw SofaError(fmt::format("{}: reading it takes more than {} GiB of memory, {}", path,
                                GIBIBYTES, expected));
  }
  if (WEXITSTATUS(status) == 0) return;
  throw SofaError(reason.empty() ? fmt::format("{}: reading it fails, {}", path, expected)
                                 : reason);
}

void writeInChild(const std::string& path, const std::function<void()>& work) {
  const auto [status, reason] = runInChild(path, work, false);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return;
  if (WIFEXITED(status) && WEXITSTATUS(status) == OUT_OF_MEMORY) throw std::bad_alloc();
  throw SofaError(!reason.empty()
                      ? reason
                      : fmt::format("{}: cannot write: the library for it fails (is there room on "
                                    "the disk?)",
                                    path));
}

void tryReading(const std::string& path, bool withResponses) {
  tryInChild(path, [&] {
    const SofaFile file(path);
    if (withResponses && file.isTransferFunctions()) file.readTransferFunctions();
    if (withResponses && !file.isTransferFunctions()) {
      file.readImpulseResponses();
      file.readDelays();
    }
  });
}
