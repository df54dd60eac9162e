#include "fileio/ReaderProcess.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "dsp/DataError.h"
#include "fileio/LibraryFolder.h"
#include "fileio/PrintableText.h"
#include "fileio/SofaLimits.h"

namespace {

using Clock = std::chrono::steady_clock;

/// A file descriptor, closed at the end of the scope.
class Descriptor {
 public:
  explicit Descriptor(int opened) : number(opened) {}
  Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number >= 0) close(number);
  }
  int operator*() const { return number; }

 private:
  int number;
};

[[noreturn]] void failFor(const std::string& what, int number) {
  throw DataError(what + ": " + std::strerror(number));
}

/// Opens a regular file: nothing else is opened even for a moment, for a device may notice.
Descriptor openRegular(const std::string& path) {
  if (path.empty()) throw DataError("the name of the transfer-function file is empty");
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    throw DataError(errno == ENOENT ? "there is no such file" : std::strerror(errno));
  }
  if (!S_ISREG(status.st_mode)) throw DataError("is not a regular file");
  Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (*file < 0) throw DataError(std::strerror(errno));
  if (fstat(*file, &status) != 0 || !S_ISREG(status.st_mode)) {
    throw DataError("is not a regular file");
  }
  return file;
}

std::size_t sizeOf(const Descriptor& file) {
  struct stat status {};
  if (fstat(*file, &status) != 0) failFor("its size", errno);
  return static_cast<std::size_t>(status.st_size);
}

/// Which descriptors and signals the reader gets.
class SpawnSettings {
 public:
  SpawnSettings() {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }

  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attributes{};
};

/// A copy of the descriptor above the four that the reader gets.
Descriptor raised(const Descriptor& descriptor) {
  Descriptor copy(fcntl(*descriptor, F_DUPFD_CLOEXEC, 10));
  if (*copy < 0) failFor("no process could be made for it", errno);
  return copy;
}

pid_t startReader(std::string program, const Descriptor& file, const Descriptor& answer,
                  bool withResponses, std::size_t limit) {
  const Descriptor input = raised(file);
  const Descriptor output = raised(answer);
  SpawnSettings settings;
  // The caller says what is wrong, not the libraries below.
  posix_spawn_file_actions_adddup2(&settings.actions, *input, STDIN_FILENO);
  posix_spawn_file_actions_addopen(&settings.actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&settings.actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&settings.actions, *output, 3);
  posix_spawn_file_actions_addclosefrom_np(&settings.actions, 4);

  std::string part = withResponses ? "all" : "head";
  std::string most = std::to_string(limit);
  char* arguments[] = {program.data(), part.data(), most.data(), nullptr};
  // Where the user's libraries are is all that the reader may know.
  const char* folders = std::getenv("LD_LIBRARY_PATH");
  std::string libraries = folders ? std::string("LD_LIBRARY_PATH=") + folders : "";
  char* environment[] = {folders ? libraries.data() : nullptr, nullptr};
  pid_t reader = -1;
  const int status = posix_spawn(&reader, program.c_str(), &settings.actions, &settings.attributes,
                                 arguments, environment);
  if (status != 0) failFor("no process could be made for it (" + program + ")", status);
  return reader;
}

/// How a reader ended, as waitpid says; nothing if the deadline came first, and then it was killed.
/// A host that takes the ends of all its child processes itself leaves 0: what counts is then
/// whether the answer is complete.
std::optional<int> waitForReader(pid_t reader, Clock::time_point deadline) {
  using std::chrono::milliseconds;
  // Where the system lacks these handles, or is short of them, it is asked every millisecond.
  const Descriptor handle(static_cast<int>(syscall(SYS_pidfd_open, reader, 0)));
  int status = 0;
  while (true) {
    const pid_t ended = waitpid(reader, &status, WNOHANG);
    if (ended == reader) return status;
    if (ended < 0 && errno != EINTR) return 0;
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) break;
    pollfd event = {*handle, POLLIN, 0};
    const bool hasHandle = *handle >= 0;
    poll(&event, hasHandle ? 1 : 0, hasHandle ? static_cast<int>(left) : 1);
  }
  kill(reader, SIGKILL);
  while (waitpid(reader, &status, 0) < 0 && errno == EINTR) {
  }
  return {};
}

/// The answer's memory, which nobody can change any more.
AnswerBytes sealed(const Descriptor& answer) {
  // Refused while somebody could still write: not even a reader that left a process behind can.
  if (fcntl(*answer, F_ADD_SEALS, F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE) != 0) {
    failFor("its reader's answer cannot be sealed", errno);
  }
  const std::size_t size = sizeOf(answer);
  if (size == 0) return {};
  // Private, for a shared mapping could be made writable, which systems before Linux 6.7 refuse.
  void* memory = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, *answer, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  const auto release = [size](const std::byte* bytes) {
    munmap(const_cast<std::byte*>(bytes), size);
  };
  return {{static_cast<const std::byte*>(memory), release}, size};
}

[[noreturn]] void failOfSignal(int signal) {
  if (signal == SIGXCPU) {
    throw DataError("reading it takes more processor time than its size allows, " +
                    EXPECTED_SOUND_FILE);
  }
  throw DataError(
      fmt::format("reading it crashes ({}), {}", strsignal(signal), EXPECTED_SOUND_FILE));
}

/// seconds: 0 for what the file's size allows.
SofaAnswer readRegular(const std::string& program, const std::string& path, bool withResponses,
                       std::size_t limit, std::size_t seconds) {
  const Descriptor file = openRegular(path);
  const std::size_t waiting = seconds == 0 ? ReaderLimits(sizeOf(file), limit).waiting : seconds;
  const Descriptor answer(memfd_create("sofa-answer", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (*answer < 0) failFor("no memory could be shared for it", errno);
  const auto deadline = Clock::now() + std::chrono::seconds(waiting);
  const pid_t reader = startReader(program, file, answer, withResponses, limit);
  const std::optional<int> status = waitForReader(reader, deadline);
  if (!status) {
    throw DataError(
        fmt::format("reading it does not end within {} s, {}", waiting, EXPECTED_SOUND_FILE));
  }
  if (WIFSIGNALED(*status)) failOfSignal(WTERMSIG(*status));
  if (WEXITSTATUS(*status) != 0) {
    throw DataError(fmt::format("its reader {} ends with status {}, expected 0", program,
                                WEXITSTATUS(*status)));
  }
  return {sealed(answer), limit};
}

}  // namespace

SofaAnswer readInProcess(const std::string& path, bool withResponses, std::size_t limit) {
  return readBy(besideLibrary("zelk-sofa-reader"), path, withResponses, limit, 0);
}

SofaAnswer readBy(const std::string& program, const std::string& path, bool withResponses,
                  std::size_t limit, std::size_t seconds) {
  try {
    return readRegular(program, path, withResponses, limit, seconds);
  } catch (const DataError& error) {
    if (path.empty()) throw;
    throw DataError(aboutFile(path, error.what()));
  }
}
