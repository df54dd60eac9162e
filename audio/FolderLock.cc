#include "audio/FolderLock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "dsp/DataError.h"

namespace Audio {

FolderLock::FolderLock(const std::string& folder)
    : descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (descriptor < 0) {
    throw DataError(fmt::format("{}: cannot be opened: {}", folder, std::strerror(errno)));
  }
  if (flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return;
  close(descriptor);
  throw DataError(fmt::format(
      "{}: another run is writing into it, expected a folder of this run's own", folder));
}

FolderLock::~FolderLock() { close(descriptor); }

}  // namespace Audio
