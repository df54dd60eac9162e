#pragma once

#include <string>
#include <string_view>

namespace Audio {

/// A file that gets its name only when it is complete. Every file of the project is made by it.
///
/// Until finish() the file has no name at all, so that nothing is left of it however the process
/// ends. While it is suspended or once a library needs a name for it, and where the file system has
/// no unnamed files, it stands beside its final name as <name>.<8 random letters and digits>.part,
/// which never names another file and follows no link; the destructor removes it.
///
/// What stands under the final name is replaced in one step, and only if it was there when the
/// object was made: a file that came into being since is another run's, and is kept.
class OutputFile {
 public:
  /// Throws DataError when there can be no file of this name, or there is one that may not be
  /// replaced (overwrite is false), that is no regular file, or that this process is reading.
  OutputFile(std::string finalPath, bool overwrite);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  const std::string& path() const { return lastPath; }

  /// Open for reading and writing, owned by this object; −1 while suspended.
  int descriptor() const { return file; }

  /// Gives the file its temporary name, unless it has one, and returns it: for libraries that open
  /// files by name. A child process that is to use it comes later. Throws DataError.
  const std::string& temporaryName();

  /// Appends the text. Throws DataError.
  void write(std::string_view text);

  /// Closes the file, so that it is none of the process's open files; resume() opens it again.
  /// Throw DataError.
  void suspend();
  void resume();

  /// Waits until the content is on the disk. Throws DataError.
  void sync();

  /// Syncs the file, gives it its name and waits until that is on the disk. Throws DataError.
  void finish();

  /// Whether this process has the file open, as it has a recording that it reads.
  static bool isOpenHere(const std::string& path);

  /// Whether a file of this name, without its folder, is one that stood for `name` and was left
  /// behind by a process that could not remove it.
  static bool isLeftover(std::string_view fileName, std::string_view name);

  /// Removes the temporary names that this copy of the library has given. For handlers of signals:
  /// calls nothing but unlink, and no signal is handled while the list of them changes in the
  /// thread that changes it.
  static void removeAll() noexcept;

 private:
  void create();
  void makeTemporaryName();
  void giveUpTemporaryName();
  void unlist();
  [[noreturn]] void fail(int error) const;

  std::string lastPath;
  std::string partPath;  // "": it has no temporary name
  bool replaces = false;
  int file = -1;
  OutputFile* previous = nullptr;  // among those with a temporary name
  OutputFile* next = nullptr;
};

}  // namespace Audio
