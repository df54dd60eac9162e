#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "audio/TemporaryFile.h"

/// An output cannot be made; what() names the file, what was found and what was expected.
class OutputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Throws OutputError when nothing can or may be written at `path`: its folder does not exist, it
/// is itself a folder, or it exists and `overwrite` is false. To be called before the work starts.
void checkOutput(const std::string& path, bool overwrite);

/// A file that appears under its name only when it is complete: until finish() its content stands
/// beside it, under temporaryPath().
class OutputFile {
 public:
  /// Checks the path as checkOutput does; makes no file yet.
  OutputFile(const std::string& path, bool overwrite);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Removes the temporary file unless finish() was called.
  ~OutputFile() = default;

  const std::string& path() const { return finalPath; }

  /// In the same folder as path(), and unlike that of any other process.
  const std::string& temporaryPath() const { return part.path(); }

  /// Makes the temporary file and writes the text as its whole content. Throws OutputError.
  void write(std::string_view text);

  /// Gives the temporary file its name. Throws OutputError when path() has come into being since
  /// the check and may not be overwritten, or the file cannot be renamed.
  void finish();

 private:
  std::string finalPath;
  Audio::TemporaryFile part;
  bool mayOverwrite;
};
