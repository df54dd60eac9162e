#include "fileio/NcFile.h"

#include <fmt/format.h>
#include <netcdf.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <utility>

namespace {

/// The most that deflate can shrink: a variable cannot hold more than this multiple of its file.
constexpr std::size_t MAX_COMPRESSION = 1032;

/// More values than this are not read from one variable (1 GiB of single precision).
constexpr std::size_t MAX_VALUES = std::size_t{1} << 28;

/// Pieces (chunks) up to this size may be larger than the variable they store.
constexpr std::size_t SMALL_PIECE = std::size_t{1} << 24;  // bytes

constexpr std::size_t MAX_ATTRIBUTE = std::size_t{1} << 16;
constexpr std::size_t LONGEST_QUOTE = 80;

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
void requireNumbers(const NcFile& file, const std::string& variable, const std::vector<T>& values) {
  constexpr auto UNWRITTEN = static_cast<T>(NC_FILL_DOUBLE);
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (std::isfinite(values[i]) && values[i] != UNWRITTEN) continue;
    file.fail(fmt::format(
        "{}: value {} {}, expected a finite number", variable, i,
        values[i] == UNWRITTEN ? "was never written" : fmt::format("is {}", values[i])));
  }
}

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

}  // namespace

std::string printable(const std::string& text) {
  std::string result = text.substr(0, LONGEST_QUOTE);
  for (char& c : result) {
    if (isControl(c) || static_cast<unsigned char>(c) > 0x7F) c = '?';
  }
  return text.size() > LONGEST_QUOTE ? result + "..." : result;
}

NcFile::NcFile(std::string path) : name(std::move(path)) {
  if (name.empty()) throw SofaError("the name of the transfer-function file is empty");
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(name, error);
  if (status.type() == std::filesystem::file_type::not_found) fail("there is no such file");
  if (!std::filesystem::status_known(status)) fail(error.message());
  if (!std::filesystem::is_regular_file(status)) fail("is not a regular file");
  fileSize = std::filesystem::file_size(name, error);
  if (error) fail(error.message());
  check(nc_open(name.c_str(), NC_NOWRITE, &id), "is not a readable netCDF file");
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
  requireNumbers(*this, variable, values);
  return values;
}

std::vector<float> NcFile::readFloats(const std::string& variable) const {
  std::vector<float> values(valueCount(variable));
  const int status = nc_get_var_float(id, variableId(variable), values.data());
  if (status != NC_ERANGE) check(status, variable);  // out of range: infinite, refused below
  requireNumbers(*this, variable, values);
  return values;
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

void NcFile::fail(const std::string& text) const {
  std::string shown = name;
  std::replace_if(shown.begin(), shown.end(), isControl, '?');
  throw SofaError(fmt::format("{}: {}", shown, text));
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
    if (length != 0 && size > MAX_VALUES / length) {
      fail(fmt::format("variable {} holds more than {} values", variable, MAX_VALUES));
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

void NcFile::check(int status, const std::string& what) const {
  if (status != NC_NOERR) fail(fmt::format("{}: {}", what, nc_strerror(status)));
}
