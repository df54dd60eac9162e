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

/// What the two data types differ in.
struct Kind {
  std::string conventions;
  std::string conventionsVersion;
  std::string dataType;
  std::string roomType;
  std::string title;
};

void putGlobals(NcWriter& file, const Kind& kind) {
  const std::string date = now();
  const std::pair<const char*, std::string> globals[] = {
      {"Conventions", "SOFA"},
      {"Version", "2.1"},
      {"SOFAConventions", kind.conventions},
      {"SOFAConventionsVersion", kind.conventionsVersion},
      {"DataType", kind.dataType},
      {"RoomType", kind.roomType},
      {"Title", kind.title},
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

std::vector<double> flattened(const std::vector<BF::Position>& rows) {
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

/// The dimensions and positions that every file has.
struct Geometry {
  int dimM;
  int dimR;
  int dimI;
  std::vector<std::pair<int, std::vector<double>>> positions;  ///< variables, values to be put
};

template <class Data>
Geometry defineGeometry(NcWriter& file, const Data& data) {
  Geometry g;
  g.dimM = file.dimension("M", data.sourcePositions.size());
  g.dimR = file.dimension("R", data.receiverPositions.size());
  g.dimI = file.dimension("I", 1);
  const int dimE = file.dimension("E", 1);
  const int dimC = file.dimension("C", 3);
  const std::vector<double> origin = {0.0, 0.0, 0.0};
  g.positions.emplace_back(file.position("ListenerPosition", g.dimI, dimC), origin);
  g.positions.emplace_back(file.position("ListenerView", g.dimI, dimC),
                           std::vector<double>{1.0, 0.0, 0.0});
  g.positions.emplace_back(file.variable("ListenerUp", NC_DOUBLE, {g.dimI, dimC}),
                           std::vector<double>{0.0, 0.0, 1.0});
  g.positions.emplace_back(file.position("ReceiverPosition", g.dimR, dimC, {g.dimI}),
                           flattened(data.receiverPositions));
  g.positions.emplace_back(file.position("SourcePosition", g.dimM, dimC),
                           flattened(data.sourcePositions));
  g.positions.emplace_back(file.position("EmitterPosition", dimE, dimC, {g.dimI}), origin);
  return g;
}

template <class Data>
void requireShape(const std::string& name, const Data& data, std::size_t N, const char* what) {
  const std::size_t M = data.sourcePositions.size();
  const std::size_t R = data.receiverPositions.size();
  if (M != 0 && R != 0 && N != 0 && data.values.size() == M * R * N) return;
  throw DataError(
      fmt::format("{}: {} values do not fill {} positions × {} receivers × {} {}, each 1 or more",
                  name, data.values.size(), M, R, N, what));
}

}  // namespace

void zelkWriteTransferFunctions(const std::string& path, const std::string& name,
                                const SofaTransferFunctions& data) {
  requireShape(name, data, data.frequencies, "frequencies");
  NcWriter file(path, name);
  putGlobals(file, {"GeneralTF", "2.0", "TF", "free field", data.title});
  file.attribute(
      NC_GLOBAL, "ZelkReferenceMicrophone",
      data.referenceMicrophone > 0 ? fmt::format("{}", data.referenceMicrophone) : "none");
  if (data.energyInFrame) {
    file.attribute(NC_GLOBAL, "ZelkEnergyInFrame", fmt::format("{:.6f}", *data.energyInFrame));
  }
  const Geometry g = defineGeometry(file, data);
  const int dimN = file.dimension("N", data.frequencies);
  const int frequencies = file.variable("N", NC_DOUBLE, {dimN});
  file.attribute(frequencies, "LongName", "frequency");
  file.attribute(frequencies, "Units", "hertz");
  const int real = file.variable("Data.Real", NC_FLOAT, {g.dimM, g.dimR, dimN});
  const int imaginary = file.variable("Data.Imag", NC_FLOAT, {g.dimM, g.dimR, dimN});

  for (const auto& [variable, values] : g.positions) file.put(variable, values);
  file.put(frequencies, frequenciesOf(data));
  std::vector<float> part(data.values.size());
  for (std::size_t i = 0; i < part.size(); ++i) part[i] = data.values[i].real();
  file.put(real, part);
  for (std::size_t i = 0; i < part.size(); ++i) part[i] = data.values[i].imag();
  file.put(imaginary, part);
  file.close();
}

void zelkWriteImpulseResponses(const std::string& path, const std::string& name,
                               const SofaImpulseResponses& data) {
  requireShape(name, data, data.samples, "samples");
  NcWriter file(path, name);
  putGlobals(file, {"GeneralFIR", "1.0", "FIR", data.roomType, data.title});
  const Geometry g = defineGeometry(file, data);
  const int dimN = file.dimension("N", data.samples);
  const int rate = file.variable("Data.SamplingRate", NC_DOUBLE, {g.dimI});
  file.attribute(rate, "Units", "hertz");
  const int delay = file.variable("Data.Delay", NC_DOUBLE, {g.dimI, g.dimR});
  const int response = file.variable("Data.IR", NC_FLOAT, {g.dimM, g.dimR, dimN});

  for (const auto& [variable, values] : g.positions) file.put(variable, values);
  file.put(rate, std::vector<double>{data.samplingRate});
  file.put(delay, std::vector<double>(data.receiverPositions.size(), 0.0));
  file.put(response, data.values);
  file.close();
}
