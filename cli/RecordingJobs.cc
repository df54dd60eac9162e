#include "cli/RecordingJobs.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <map>
#include <new>
#include <stdexcept>

#include "cli/PrintableOutput.h"
#include "cli/StopSignals.h"
#include "dsp/DataError.h"

namespace {

/// What a process says on one of its streams: a file in memory.
class HeldOutput {
 public:
  HeldOutput() : file(memfd_create("zelk-sss", MFD_CLOEXEC)) {
    if (file < 0) throw std::runtime_error(std::string("memfd_create: ") + std::strerror(errno));
  }
  HeldOutput(const HeldOutput&) = delete;
  HeldOutput& operator=(const HeldOutput&) = delete;
  HeldOutput(HeldOutput&& other) noexcept : file(other.file) { other.file = -1; }
  HeldOutput& operator=(HeldOutput&&) = delete;
  ~HeldOutput() {
    if (file >= 0) close(file);
  }

  /// In the child.
  void replace(int descriptor) const { dup2(file, descriptor); }

  /// The lines go to a stream of this process, which has made them printable already.
  void release(int descriptor) const {
    char block[4096];
    lseek(file, 0, SEEK_SET);
    for (ssize_t got = read(file, block, sizeof block); got > 0;
         got = read(file, block, sizeof block)) {
      for (ssize_t done = 0; done < got;) {
        const ssize_t sent = write(descriptor, block + done, static_cast<std::size_t>(got - done));
        if (sent < 0 && errno != EINTR) return;
        done += std::max<ssize_t>(0, sent);
      }
    }
  }

 private:
  int file;
};

/// The signals that end this process and are not ignored, and the one that tells of children, are
/// waited for instead while it lives.
class AwaitedSignals {
 public:
  AwaitedSignals() {
    sigemptyset(&awaited);
    sigaddset(&awaited, SIGCHLD);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      struct sigaction now {};
      const bool isIgnored = sigaction(signal, nullptr, &now) == 0 && now.sa_handler == SIG_IGN;
      if (!isIgnored) sigaddset(&awaited, signal);
    }
    sigprocmask(SIG_BLOCK, &awaited, &before);
  }
  AwaitedSignals(const AwaitedSignals&) = delete;
  AwaitedSignals& operator=(const AwaitedSignals&) = delete;
  ~AwaitedSignals() { restore(); }

  void restore() const { sigprocmask(SIG_SETMASK, &before, nullptr); }
  int next() const { return sigwaitinfo(&awaited, nullptr); }

 private:
  sigset_t awaited{};
  sigset_t before{};
};

class Runner {
 public:
  explicit Runner(const RecordingJobs& recordingJobs) : jobs(recordingJobs) {}

  void run() {
    const std::size_t count = jobs.recordings.size();
    const auto most = static_cast<std::size_t>(jobs.processes);
    while (!running.empty() || (next < count && stop == 0)) {
      while (stop == 0 && next < count && running.size() < most) begin(next++);
      const int signal = signals.next();
      if (signal == SIGCHLD) {
        collect();
      } else if (signal > 0) {
        stop = signal;
        for (const auto& [process, job] : running) kill(process, signal);
      }
    }
    report();
  }

 private:
  struct Job {
    std::size_t number;
    HeldOutput output;
    HeldOutput errors;
  };

  void begin(std::size_t number) {
    Job job{number, {}, {}};
    std::cout.flush();
    const pid_t parent = getpid();
    const pid_t process = fork();
    if (process < 0) {
      throw std::runtime_error(std::string("no process can be started: ") + std::strerror(errno));
    }
    if (process == 0) {
      // A terminal's Ctrl-C reaches the first process alone, which passes it on.
      setpgid(0, 0);
      prctl(PR_SET_PDEATHSIG, SIGTERM);
      if (getppid() != parent) _exit(1);
      job.output.replace(STDOUT_FILENO);
      job.errors.replace(STDERR_FILENO);
      removeUnfinishedFilesOnSignals();
      signals.restore();
      _exit(workInChild(number));
    }
    running.emplace(process, std::move(job));
  }

  int workInChild(std::size_t number) const {
    int status = 1;
    try {
      jobs.work(number);
      status = 0;
    } catch (const std::bad_alloc&) {
      warn("the files need more memory than there is");
    } catch (const std::exception& error) {
      warn(error.what());
    }
    std::cout.flush();
    std::fflush(stdout);
    return status;
  }

  void collect() {
    int status = 0;
    for (pid_t process = waitpid(-1, &status, WNOHANG); process > 0;
         process = waitpid(-1, &status, WNOHANG)) {
      const auto found = running.find(process);
      if (found == running.end()) continue;
      const Job& job = found->second;
      const std::string& name = jobs.recordings[job.number];
      job.errors.release(STDERR_FILENO);
      job.output.release(STDOUT_FILENO);
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        failed.push_back(name);
        warn(WIFEXITED(status) ? fmt::format("{}: was not separated", name)
                               : fmt::format("{}: was not separated; signal {} ended its process",
                                             name, WTERMSIG(status)));
      }
      running.erase(found);
    }
  }

  void report() const {
    const std::size_t separated = next - failed.size();
    const std::string summary =
        fmt::format("{} of {} recordings separated", separated, jobs.recordings.size());
    if (stop != 0) throw std::runtime_error(fmt::format("stopped by signal {}; {}", stop, summary));
    if (!failed.empty()) {
      throw DataError(fmt::format("{}; not separated: {}", summary, fmt::join(failed, ", ")));
    }
    if (!jobs.isQuiet) std::cout << summary << "\n";
  }

  const RecordingJobs& jobs;
  AwaitedSignals signals;
  std::map<pid_t, Job> running;
  std::size_t next = 0;
  int stop = 0;  // the signal that asked for it
  std::vector<std::string> failed;
};

}  // namespace

void runJobs(const RecordingJobs& jobs) { Runner(jobs).run(); }
