#include "fileio/NcFile.h"

#include <fmt/format.h>
#include <netcdf.h>
#include <netcdf_mem.h>

#include <algorithm>
#include <cmath>
#include <span>

#include "dsp/DataError.h"
#include "fileio/SofaLimits.h"

namespace {

[[noreturn]] void fail(const std::string& text) { throw DataError(text); }

/// Pieces (chunks) up to this size may be larger than the variable they store.
constexpr std::size_t SMALL_PIECE = std::size_t{1} << 24;  // bytes

constexpr std::size_t MAX_ATTRIBUTE = std::size_t{1} << 16;

bool isNumeric(nc_type type) { return type >= NC_BYTE && type <= NC_UINT64 && type != NC_CHAR; }

std::size_t bytesOf(nc_type type) {
  switch (type) {
    case NC_BYTE:
    case NC_UBYTE:
      return 1;
    case NC_SHORT:
    case NC_USHORT:
      return 2;
    case NC_INT:
    case NC_UINT:
    case NC_FLOAT:
      return 4;
    default:
      return 8;
  }
}

/// Where a file was never written (an interrupted measurement, say) netCDF reads its fill value.
template <typename T>
void requireNumbers(const std::string& variable, std::span<const T> values) {
  constexpr auto UNWRITTEN = static_cast<T>(NC_FILL_DOUBLE);
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (std::isfinite(values[i]) && values[i] != UNWRITTEN) continue;
    fail(fmt::format(
        "{}: value {} {}, expected a finite number", variable, i,
        values[i] == UNWRITTEN ? "was never written" : fmt::format("is {}", values[i])));
  }
}

}  // namespace

NcFile::NcFile(const void* bytes, std::size_t size, std::size_t limit)
    : fileSize(size), largest(limit) {
  // The library takes memory that it could write to, but leaves it alone when it only reads.
  check(nc_open_mem("database", NC_NOWRITE, size, const_cast<void*>(bytes), &id),
        "is not a readable netCDF file");
}

NcFile::~NcFile() {
  if (id >= 0) nc_close(id);
}

bool NcFile::hasVariable(const std::string& variable) const {
  int variableNumber = 0;
  return nc_inq_varid(id, variable.c_str(), &variableNumber) == NC_NOERR;
}

std::vector<std::size_t> NcFile::shape(const std::string& variable) const {
  const int number = variableId(variable);
  int rank = 0;
  check(nc_inq_varndims(id, number, &rank), variable);
  std::vector<int> dimensions(static_cast<std::size_t>(rank));
  check(nc_inq_vardimid(id, number, dimensions.data()), variable);
  std::vector<std::size_t> lengths;
  for (const int dimension : dimensions) {
    std::size_t length = 0;
    check(nc_inq_dimlen(id, dimension, &length), variable);
    lengths.push_back(length);
  }
  return lengths;
}

std::vector<double> NcFile::readDoubles(const std::string& variable) const {
  std::vector<double> values(valueCount(variable));
  check(nc_get_var_double(id, variableId(variable), values.data()), variable);
  requireNumbers<double>(variable, values);
  return values;
}

void NcFile::readFloats(const std::string& variable, float* values) const {
  const std::size_t count = valueCount(variable);
  const int status = nc_get_var_float(id, variableId(variable), values);
  if (status != NC_ERANGE) check(status, variable);  // out of range: infinite, refused below
  requireNumbers<float>(variable, {values, count});
}

std::string NcFile::attribute(const std::string& variable, const std::string& attribute) const {
  const int number = variable.empty() ? NC_GLOBAL : variableId(variable);
  nc_type type = NC_NAT;
  std::size_t length = 0;
  if (nc_inq_att(id, number, attribute.c_str(), &type, &length) != NC_NOERR) return {};
  if (length > MAX_ATTRIBUTE) {
    fail(fmt::format("attribute {} has {} elements, expected at most {}", attribute, length,
                     MAX_ATTRIBUTE));
  }
  if (type == NC_CHAR) {
    std::string text(length, '\0');
    check(nc_get_att_text(id, number, attribute.c_str(), text.data()), attribute);
    while (!text.empty() && text.back() == '\0') text.pop_back();
    return text;
  }
  if (type == NC_STRING && length == 1) {
    char* text = nullptr;
    check(nc_get_att_string(id, number, attribute.c_str(), &text), attribute);
    std::string result = text ? text : "";
    nc_free_string(1, &text);
    return result;
  }
  fail(fmt::format("attribute {} is not a text, expected one", attribute));
}

int NcFile::variableId(const std::string& variable) const {
  int number = -1;
  if (nc_inq_varid(id, variable.c_str(), &number) != NC_NOERR) {
    fail(fmt::format("variable {} is missing", variable));
  }
  return number;
}

std::size_t NcFile::valueCount(const std::string& variable) const {
  const int number = variableId(variable);
  nc_type type = NC_NAT;
  check(nc_inq_vartype(id, number, &type), variable);
  if (!isNumeric(type)) fail(fmt::format("variable {} does not hold numbers", variable));

  std::size_t size = 1;
  for (const std::size_t length : shape(variable)) {
    if (length != 0 && size > largest / sizeof(float) / length) {
      fail(fmt::format("variable {} has more than {} values, {}", variable, largest / sizeof(float),
                       expectedAtMost(largest)));
    }
    size *= length;
  }
  const std::size_t bytes = size * bytesOf(type);
  if (bytes / MAX_COMPRESSION > fileSize) {
    fail(fmt::format("variable {} claims {} bytes, more than a file of {} bytes can hold", variable,
                     bytes, fileSize));
  }
  checkPieces(number, variable, std::max(bytes, SMALL_PIECE));
  return size;
}

// The library below holds a whole piece in memory even if a single value of it is read.
void NcFile::checkPieces(int variableNumber, const std::string& variable, std::size_t bytes) const {
  nc_type type = NC_NAT;
  int rank = 0;
  check(nc_inq_vartype(id, variableNumber, &type), variable);
  check(nc_inq_varndims(id, variableNumber, &rank), variable);
  std::vector<std::size_t> lengths(std::max<std::size_t>(1, static_cast<std::size_t>(rank)), 1);
  int storage = NC_CONTIGUOUS;
  check(nc_inq_var_chunking(id, variableNumber, &storage, lengths.data()), variable);
  if (storage != NC_CHUNKED) return;
  std::size_t left = bytes / bytesOf(type);
  for (const std::size_t length : lengths) left /= std::max<std::size_t>(1, length);
  if (left == 0) {
    fail(fmt::format("variable {} is stored in pieces (chunks) of {} values, expected at most {}",
                     variable, fmt::join(lengths, " x "), bytes / bytesOf(type)));
  }
}

void NcFile::check(int status, const std::string& what) {
  if (status != NC_NOERR) fail(fmt::format("{}: {}", what, nc_strerror(status)));
}
