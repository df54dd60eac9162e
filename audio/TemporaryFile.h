#pragma once

#include <string>
#include <system_error>

namespace Audio {

/// A file that stands under a temporary name until it is complete. The destructor removes it unless
/// it got its name; a process that a signal ends can remove all of them.
///
/// The file itself is made, written and closed by whoever uses path().
class TemporaryFile {
 public:
  TemporaryFile(std::string temporaryPath, std::string finalPath);
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile();

  const std::string& path() const { return partPath; }

  /// Gives the file its name, in place of one that exists. Returns why it cannot be given.
  std::error_code rename();

  /// Removes the files of all TemporaryFiles that this copy of the library holds. For handlers of
  /// signals: calls nothing but unlink, and no signal is handled while the list of them changes in
  /// the thread that changes it.
  static void removeAll() noexcept;

 private:
  std::string partPath;
  std::string lastPath;
  bool renamed = false;
  TemporaryFile* previous = nullptr;
  TemporaryFile* next = nullptr;
};

}  // namespace Audio
