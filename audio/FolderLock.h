#pragma once

#include <string>

namespace Audio {

/// Keeps a folder for one run as long as the object lives. The lock is on the folder itself: it
/// leaves nothing behind, and ends with the process that has it.
class FolderLock {
 public:
  /// Throws DataError when the folder cannot be opened or another FolderLock has it, in this
  /// process or any other. Where the file system knows no locks on folders, nothing is kept.
  explicit FolderLock(const std::string& folder);
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;
  ~FolderLock();

 private:
  int descriptor;
};

}  // namespace Audio
