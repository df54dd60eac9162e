#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "fileio/PrintableText.h"

/// A netCDF file in memory, every access checked. Throws DataError, whose texts do not name the
/// file: whoever started the reader knows its name.
class NcFile {
 public:
  /// The file's bytes, which must outlive this, and how many bytes a variable may have in single
  /// precision.
  NcFile(const void* bytes, std::size_t size, std::size_t limit);
  NcFile(const NcFile&) = delete;
  NcFile& operator=(const NcFile&) = delete;
  ~NcFile();

  bool hasVariable(const std::string& variable) const;

  /// The lengths of a variable's dimensions. Throws when there is no such variable.
  std::vector<std::size_t> shape(const std::string& variable) const;

  /// How many numbers a variable holds: no more than the limit allows, and no more than a file of
  /// this size can hold compressed. Throws when it holds no numbers, more, or stores them in pieces
  /// larger than itself.
  std::size_t valueCount(const std::string& variable) const;

  /// All values of a numeric variable, row-major, in double or, valueCount of them, in single
  /// precision. Throws as valueCount does, and unless every value is finite and was written (is not
  /// netCDF's fill value).
  std::vector<double> readDoubles(const std::string& variable) const;
  void readFloats(const std::string& variable, float* values) const;

  /// Text of a global attribute (variable empty) or of a variable's, as it stands in the file: pass
  /// it through printable() before showing it. Empty where there is none.
  std::string attribute(const std::string& variable, const std::string& attribute) const;

 private:
  int variableId(const std::string& variable) const;
  void checkPieces(int variableNumber, const std::string& variable, std::size_t bytes) const;
  static void check(int status, const std::string& what);

  int id = -1;
  std::size_t fileSize;
  std::size_t largest;
};
