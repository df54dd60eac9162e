#include "audio/TemporaryFile.h"

#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <mutex>
#include <utility>

namespace Audio {

namespace {

std::mutex changing;
TemporaryFile* first = nullptr;

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

}  // namespace

TemporaryFile::TemporaryFile(std::string temporaryPath, std::string finalPath)
    : partPath(std::move(temporaryPath)), lastPath(std::move(finalPath)) {
  const ListChange change;
  next = first;
  if (next) next->previous = this;
  first = this;
}

TemporaryFile::~TemporaryFile() {
  const ListChange change;
  (previous ? previous->next : first) = next;
  if (next) next->previous = previous;
  if (!renamed) unlink(partPath.c_str());
}

std::error_code TemporaryFile::rename() {
  std::error_code error;
  std::filesystem::rename(partPath, lastPath, error);
  renamed = !error;
  return error;
}

void TemporaryFile::removeAll() noexcept {
  for (const TemporaryFile* file = first; file; file = file->next) {
    if (!file->renamed) unlink(file->partPath.c_str());
  }
}

}  // namespace Audio
