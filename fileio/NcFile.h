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

  /// All values of a numeric variable, row-major, in double or single precision. Throws unless
  /// every value is finite and the file is large enough to hold them.
  std::vector<double> readDoubles(const std::string& variable) const;
  std::vector<float> readFloats(const std::string& variable) const;

  /// Text of a global attribute (variable empty) or of a variable's. Empty where there is none.
  std::string attribute(const std::string& variable, const std::string& attribute) const;

  /// Throws SofaError "<file>: <text>".
  [[noreturn]] void fail(const std::string& text) const;

 private:
  int variableId(const std::string& variable) const;
  std::size_t checkedSize(const std::string& variable) const;
  void check(int status, const std::string& what) const;

  std::string name;
  int id = -1;
  std::size_t fileSize = 0;
};
