#include "cli/tfdb/ReadTrial.h"

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

#include "fileio/SofaFile.h"

namespace {

constexpr rlim_t SECONDS = 30;  // of processor time
constexpr rlim_t GIBIBYTES = 6;
constexpr int OUT_OF_MEMORY = 3;

void limitResources() {
  const rlimit time = {SECONDS, SECONDS};
  setrlimit(RLIMIT_CPU, &time);
  const rlimit noCore = {0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
#ifndef __SANITIZE_ADDRESS__  // which reserves terabytes of addresses
  const rlimit memory = {GIBIBYTES << 30, GIBIBYTES << 30};
  setrlimit(RLIMIT_AS, &memory);
#endif
}

[[noreturn]] void runChild(const std::function<void()>& work) {
  limitResources();
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // an interrupted command leaves no reader behind
  // The parent will say what is wrong; here are only second copies of it.
  const int null = open("/dev/null", O_WRONLY);
  if (null >= 0) dup2(null, STDERR_FILENO);
  try {
    work();
  } catch (const std::bad_alloc&) {
    _exit(OUT_OF_MEMORY);
  } catch (const std::exception&) {
    _exit(0);
  }
  _exit(0);
}

}  // namespace

void tryInChild(const std::string& path, const std::function<void()>& work) {
  const pid_t child = fork();
  if (child < 0) {
    throw SofaError(
        fmt::format("{}: no process could be made to read it: {}", path, std::strerror(errno)));
  }
  if (child == 0) runChild(work);
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      throw SofaError(fmt::format("{}: reading it: {}", path, std::strerror(errno)));
    }
  }
  const std::string expected = "expected a sound netCDF-4 file";
  if (WIFSIGNALED(status)) {
    const int signal = WTERMSIG(status);
    const bool slow = signal == SIGXCPU || signal == SIGKILL;
    throw SofaError(
        slow ? fmt::format("{}: reading it takes more than {} s, {}", path, SECONDS, expected)
             : fmt::format("{}: reading it crashes ({}), {}", path, strsignal(signal), expected));
  }
  if (WEXITSTATUS(status) == OUT_OF_MEMORY) {
    throw SofaError(fmt::format("{}: reading it takes more than {} GiB of memory, {}", path,
                                GIBIBYTES, expected));
  }
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
