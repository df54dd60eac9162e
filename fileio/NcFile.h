#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

/// A file cannot be used; what() names the file, the place in it, what was found and expected.
class SofaError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A text from a file, fit to be shown on one line: what is not printable ASCII becomes '?', and
/// only the first 80 characters are kept.
std::string printable(const std::string& text);

/// A netCDF file open for reading, every access checked. Throws SofaError.
class NcFile {
 public:
  /// Opens a regular file; anything else (a folder, a device, no file) is refused.
  explicit NcFile(std::string path);
  NcFile(const NcFile&) = delete;
  NcFile& operator=(const NcFile&) = delete;
  ~NcFile();

  const std::string& path() const { return name; }

  bool hasVariable(const std::string& variable) const;

  /// The lengths of a variable's dimensions. Throws when there is no such variable.
  std::vector<std::size_t> shape(const std::string& variable) const;

  /// How many numbers a variable holds: at most 2^28, and no more than a file of this size can hold
  /// compressed. Throws when it holds no numbers, more, or stores them in pieces larger than
  /// itself.
  std::size_t valueCount(const std::string& variable) const;

  /// All values of a numeric variable, row-major, in double or single precision. Throws as
  /// valueCount does, and unless every value is finite and was written (is not netCDF's fill
  /// value).
  std::vector<double> readDoubles(const std::string& variable) const;
  std::vector<float> readFloats(const std::string& variable) const;

  /// Text of a global attribute (variable empty) or of a variable's, as it stands in the file: pass
  /// it through printable() before showing it. Empty where there is none.
  std::string attribute(const std::string& variable, const std::string& attribute) const;

  /// Throws SofaError "<file>: <text>", in which control characters of the name are replaced.
  [[noreturn]] void fail(const std::string& text) const;

 private:
  int variableId(const std::string& variable) const;
  void checkPieces(int variableNumber, const std::string& variable, std::size_t bytes) const;
  void check(int status, const std::string& what) const;

  std::string name;
  int id = -1;
  std::size_t fileSize = 0;
};
