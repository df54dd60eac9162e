#include "fileio/SofaWriter.h"

#include <fmt/format.h>
#include <netcdf.h>

#include <ctime>
#include <utility>

#include "dsp/DataError.h"

namespace {

constexpr int COMPRESSION_LEVEL = 5;

/// A netCDF-4 file under construction. One that is not closed stays open in the library, whose own
/// way to give a file up crashes after a failed write.
class NcWriter {
 public:
  NcWriter(const std::string& path, std::string nameInMessages) : name(std::move(nameInMessages)) {
    check(nc_create(path.c_str(), NC_NETCDF4 | NC_CLOBBER, &id));
  }
  NcWriter(const NcWriter&) = delete;
  NcWriter& operator=(const NcWriter&) = delete;

  int dimension(const char* label, std::size_t length) {
    int dimensionId = 0;
    check(nc_def_dim(id, label, length, &dimensionId));
    return dimensionId;
  }

  void attribute(int variable, const char* label, const std::string& text) {
    check(nc_put_att_text(id, variable, label, text.size(), text.c_str()));
  }

  int variable(const char* label, nc_type type, const std::vector<int>& dimensions) {
    int number = 0;
    check(nc_def_var(id, label, type, static_cast<int>(dimensions.size()), dimensions.data(),
                     &number));
    check(nc_def_var_deflate(id, number, 1, 1, COMPRESSION_LEVEL));
    return number;
  }

  int position(const char* label, int rows, int coordinates, const std::vector<int>& more = {}) {
    std::vector<int> dimensions = {rows, coordinates};
    dimensions.insert(dimensions.end(), more.begin(), more.end());
    const int number = variable(label, NC_DOUBLE, dimensions);
    attribute(number, "Type", "cartesian");
    attribute(number, "Units", "metre");
    return number;
  }

  void put(int variable, const std::vector<double>& values) {
    check(nc_put_var_double(id, variable, values.data()));
  }
  void put(int variable, const std::vector<float>& values) {
    check(nc_put_var_float(id, variable, values.data()));
  }

  void close() const { check(nc_close(id)); }

 private:
  void check(int status) const {
    if (status == NC_NOERR) return;
    throw DataError(fmt::format("{}: cannot write: {}{}", name, nc_strerror(status),
                                status == NC_EHDFERR ? " (is there room on the disk?)" : ""));
  }

  std::string name;
  int id = -1;
};

std::string now() {
  const std::time_t time = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&time, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &utc);
  return text;
}

void putGlobals(NcWriter& file, const std::string& title) {
  const std::string date = now();
  const std::pair<const char*, std::string> globals[] = {{"Conventions", "SOFA"},
                                                         {"Version", "2.1"},
                                                         {"SOFAConventions", "GeneralTF"},
                                                         {"SOFAConventionsVersion", "2.0"},
                                                         {"DataType", "TF"},
                                                         {"RoomType", "free field"},
                                                         {"Title", title},
                                                         {"DateCreated", date},
                                                         {"DateModified", date},
                                                         {"APIName", "zelk-sss"},
                                                         {"APIVersion", ZELK_VERSION},
                                                         {"ApplicationName", "zelk-sss"},
                                                         {"ApplicationVersion", ZELK_VERSION},
                                                         {"AuthorContact", "not stated"},
                                                         {"Organization", "not stated"},
                                                         {"License", "not stated"},
                                                         {"Comment", ""},
                                                         {"History", ""},
                                                         {"References", ""},
                                                         {"Origin", ""}};
  for (const auto& [label, text] : globals) file.attribute(NC_GLOBAL, label, text);
}

std::vector<double> flattened(const std::vector<std::array<double, 3>>& rows) {
  std::vector<double> values;
  for (const auto& row : rows) values.insert(values.end(), row.begin(), row.end());
  return values;
}

std::vector<double> frequenciesOf(const SofaTransferFunctions& data) {
  std::vector<double> frequencies(data.frequencies, 0.0);
  for (std::size_t n = 1; n < frequencies.size(); ++n) {
    frequencies[n] = 0.5 * data.samplingRate * static_cast<double>(n) /
                     static_cast<double>(frequencies.size() - 1);
  }
  return frequencies;
}

}  // namespace

void zelkWriteSofa(const std::string& path, const std::string& name,
                   const SofaTransferFunctions& data) {
  const std::size_t M = data.sourcePositions.size();
  const std::size_t R = data.receiverPositions.size();
  const std::size_t N = data.frequencies;
  if (M == 0 || R == 0 || N == 0 || data.values.size() != M * R * N) {
    throw DataError(
        fmt::format("{}: {} values do not fill {} positions × {} receivers × {} "
                    "frequencies, each 1 or more",
                    name, data.values.size(), M, R, N));
  }

  NcWriter file(path, name);
  putGlobals(file, data.title);
  const int dimM = file.dimension("M", M);
  const int dimR = file.dimension("R", R);
  const int dimN = file.dimension("N", N);
  const int dimE = file.dimension("E", 1);
  const int dimI = file.dimension("I", 1);
  const int dimC = file.dimension("C", 3);

  const int listener = file.position("ListenerPosition", dimI, dimC);
  const int view = file.position("ListenerView", dimI, dimC);
  const int up = file.variable("ListenerUp", NC_DOUBLE, {dimI, dimC});
  const int receivers = file.position("ReceiverPosition", dimR, dimC, {dimI});
  const int sources = file.position("SourcePosition", dimM, dimC);
  const int emitters = file.position("EmitterPosition", dimE, dimC, {dimI});
  const int frequencies = file.variable("N", NC_DOUBLE, {dimN});
  file.attribute(frequencies, "LongName", "frequency");
  file.attribute(frequencies, "Units", "hertz");
  const int real = file.variable("Data.Real", NC_FLOAT, {dimM, dimR, dimN});
  const int imaginary = file.variable("Data.Imag", NC_FLOAT, {dimM, dimR, dimN});

  file.put(listener, std::vector<double>{0.0, 0.0, 0.0});
  file.put(view, std::vector<double>{1.0, 0.0, 0.0});
  file.put(up, std::vector<double>{0.0, 0.0, 1.0});
  file.put(receivers, flattened(data.receiverPositions));
  file.put(sources, flattened(data.sourcePositions));
  file.put(emitters, std::vector<double>{0.0, 0.0, 0.0});
  file.put(frequencies, frequenciesOf(data));
  std::vector<float> part(data.values.size());
  for (std::size_t i = 0; i < part.size(); ++i) part[i] = data.values[i].real();
  file.put(real, part);
  for (std::size_t i = 0; i < part.size(); ++i) part[i] = data.values[i].imag();
  file.put(imaginary, part);
  file.close();
}
