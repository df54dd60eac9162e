#include "audio/OutputFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <utility>

#include "dsp/DataError.h"

namespace Audio {

namespace fs = std::filesystem;

namespace {

constexpr mode_t MODE = 0666;  // less what the process's mask takes away
constexpr std::string_view ENDING = ".part";
constexpr std::string_view LETTERS = "abcdefghijklmnopqrstuvwxyz012345";
constexpr std::size_t RANDOM_LETTERS = 8;
constexpr std::size_t MAX_NAME = 255;  // bytes
constexpr int MAX_ATTEMPTS = 100;

std::mutex changing;
OutputFile* first = nullptr;

/// The list is this scope's alone: no other thread changes it, no signal reads it here.
class ListChange {
 public:
  ListChange() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    changing.lock();
  }
  ListChange(const ListChange&) = delete;
  ListChange& operator=(const ListChange&) = delete;
  ~ListChange() {
    changing.unlock();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

 private:
  sigset_t before;
};

std::string folderOf(const std::string& path) {
  const fs::path folder = fs::path(path).parent_path();
  return folder.empty() ? "." : folder.string();
}

std::string randomLetters() {
  unsigned char bytes[RANDOM_LETTERS] = {};
  [[maybe_unused]] const ssize_t got =
      getrandom(bytes, sizeof bytes, 0);  // names need not be secret
  std::string letters;
  for (const unsigned char byte : bytes) letters += LETTERS[byte % LETTERS.size()];
  return letters;
}

/// A new name beside a file's own, which is cut where the whole would be too long.
std::string nameBeside(const std::string& path) {
  const std::string ending = fmt::format(".{}{}", randomLetters(), ENDING);
  const std::string name = fs::path(path).filename().string();
  return path.substr(0, path.size() - name.size()) + name.substr(0, MAX_NAME - ending.size()) +
         ending;
}

std::string nameOfDescriptor(int descriptor) { return fmt::format("/proc/self/fd/{}", descriptor); }

/// A folder's entries are on the disk only when the folder is synced itself.
void syncFolder(const std::string& folder) {
  const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return;
  fsync(descriptor);  // some file systems cannot; the file is complete all the same
  close(descriptor);
}

}  // namespace

OutputFile::OutputFile(std::string finalPath, bool overwrite) : lastPath(std::move(finalPath)) {
  struct stat found {};
  if (lstat(lastPath.c_str(), &found) == 0) {
    if (!overwrite) fail(EEXIST);
    if (!S_ISREG(found.st_mode) && !S_ISLNK(found.st_mode)) {
      throw DataError(
          fmt::format("{}: is no file that could be replaced, expected a new name", lastPath));
    }
    if (isOpenHere(lastPath)) {
      throw DataError(
          fmt::format("{}: is being read by this run, expected another name", lastPath));
    }
    replaces = true;
  } else if (errno != ENOENT) {
    fail(errno);
  }
  create();
}

OutputFile::~OutputFile() {
  if (file >= 0) close(file);
  giveUpTemporaryName();
}

void OutputFile::fail(int error) const {
  if (error == EEXIST) {
    throw DataError(fmt::format("{}: exists already, expected a new name", lastPath));
  }
  throw DataError(fmt::format("{}: cannot be written: {}", lastPath, std::strerror(error)));
}

bool OutputFile::isOpenHere(const std::string& path) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd", error)) {
    std::error_code none;
    if (fs::equivalent(entry.path(), path, none) && !none) return true;
  }
  return false;
}

// ---- temporary names

void OutputFile::create() {
  file = open(folderOf(lastPath).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, MODE);
  // Without /proc it could never get a name.
  if (file >= 0 && access(nameOfDescriptor(file).c_str(), F_OK) == 0) return;
  if (file >= 0) close(file);
  file = -1;
  makeTemporaryName();
}

/// Makes the file under a temporary name, or gives one to the file that has none.
void OutputFile::makeTemporaryName() {
  const ListChange change;
  for (int attempt = 0; attempt < MAX_ATTEMPTS && partPath.empty(); ++attempt) {
    const std::string name = nameBeside(lastPath);
    int status = 0;
    if (file < 0) {
      status = file = open(name.c_str(), O_CREAT | O_EXCL | O_NOFOLLOW | O_RDWR | O_CLOEXEC, MODE);
    } else {
      status = linkat(AT_FDCWD, nameOfDescriptor(file).c_str(), AT_FDCWD, name.c_str(),
                      AT_SYMLINK_FOLLOW);
    }
    if (status >= 0) partPath = name;
    if (status < 0 && errno != EEXIST) break;
  }
  if (partPath.empty()) fail(errno);
  next = first;
  if (next) next->previous = this;
  first = this;
}

const std::string& OutputFile::temporaryName() {
  if (partPath.empty()) makeTemporaryName();
  return partPath;
}

void OutputFile::giveUpTemporaryName() {
  if (partPath.empty()) return;
  const ListChange change;
  unlink(partPath.c_str());
  unlist();
}

/// From here on the temporary name is not this object's.
void OutputFile::unlist() {
  (previous ? previous->next : first) = next;
  if (next) next->previous = previous;
  previous = next = nullptr;
  partPath.clear();
}

void OutputFile::removeAll() noexcept {
  for (const OutputFile* part = first; part; part = part->next) unlink(part->partPath.c_str());
}

bool OutputFile::isLeftover(std::string_view fileName, std::string_view name) {
  if (fileName.size() != name.size() + 1 + RANDOM_LETTERS + ENDING.size()) return false;
  const std::string_view letters = fileName.substr(name.size() + 1, RANDOM_LETTERS);
  return fileName.starts_with(name) && fileName[name.size()] == '.' && fileName.ends_with(ENDING) &&
         letters.find_first_not_of(LETTERS) == std::string_view::npos;
}

// ---- content

void OutputFile::write(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(file, text.data(), text.size());
    if (written < 0 && errno != EINTR) fail(errno);
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
}

void OutputFile::suspend() {
  if (file < 0) return;
  temporaryName();
  const int status = close(file);
  file = -1;
  if (status != 0) fail(errno);
}

void OutputFile::resume() {
  if (file >= 0) return;
  file = open(partPath.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC);
  if (file < 0) fail(errno);
}

// ---- the end

void OutputFile::sync() {
  const bool wasSuspended = file < 0;
  resume();
  if (fsync(file) != 0) fail(errno);
  if (wasSuspended) suspend();
}

void OutputFile::finish() {
  resume();
  sync();
  temporaryName();
  {
    const ListChange change;
    const unsigned flags = replaces ? 0 : RENAME_NOREPLACE;
    int status = renameat2(AT_FDCWD, partPath.c_str(), AT_FDCWD, lastPath.c_str(), flags);
    if (status != 0 && errno == EINVAL) {  // a file system that cannot keep what is there
      if (access(lastPath.c_str(), F_OK) == 0) fail(EEXIST);
      status = rename(partPath.c_str(), lastPath.c_str());
    }
    if (status != 0) fail(errno);
    unlist();
  }
  close(file);
  file = -1;
  syncFolder(folderOf(lastPath));
}

}  // namespace Audio
