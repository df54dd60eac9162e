#include "tests/cli/mix/FirFile.h"

#include <netcdf.h>

#include <stdexcept>

namespace {

void check(int status) {
  if (status != NC_NOERR) throw std::runtime_error(nc_strerror(status));
}

}  // namespace

void writeFirFile(const std::string& path, const FirResponses& data) {
  int file = 0;
  check(nc_create(path.c_str(), NC_NETCDF4 | NC_CLOBBER, &file));
  const auto text = [&](int variable, const char* name, const std::string& value) {
    check(nc_put_att_text(file, variable, name, value.size(), value.c_str()));
  };
  const auto dimension = [&](const char* name, std::size_t length) {
    int id = 0;
    check(nc_def_dim(file, name, length, &id));
    return id;
  };
  const auto variable = [&](const char* name, const std::vector<int>& dimensions) {
    int id = 0;
    check(nc_def_var(file, name, NC_DOUBLE, static_cast<int>(dimensions.size()), dimensions.data(),
                     &id));
    return id;
  };
  text(NC_GLOBAL, "Conventions", "SOFA");
  text(NC_GLOBAL, "SOFAConventions", "SimpleFreeFieldHRIR");
  text(NC_GLOBAL, "DataType", "FIR");
  const int I = dimension("I", 1);
  const int C = dimension("C", 3);
  const int M = dimension("M", data.sources.size());
  const int R = dimension("R", data.receivers);
  const int N = dimension("N", data.samples);
  const int response = variable("Data.IR", {M, R, N});
  const int rate = variable("Data.SamplingRate", {I});
  const int delay = variable("Data.Delay", {data.delays.size() == data.receivers ? I : M, R});
  const int source = variable("SourcePosition", {M, C});
  const int receiver = variable("ReceiverPosition", {R, C});
  for (const int position : {source, receiver}) {
    text(position, "Type", "cartesian");
    text(position, "Units", "metre");
  }
  check(nc_enddef(file));
  std::vector<double> receiverPositions(3 * data.receivers);
  for (std::size_t r = 0; r < data.receivers; ++r) {
    receiverPositions[3 * r] = 0.1 * static_cast<double>(r);
  }
  check(nc_put_var_double(file, response, data.values.data()));
  check(nc_put_var_double(file, rate, &data.samplingRate));
  check(nc_put_var_double(file, delay, data.delays.data()));
  check(nc_put_var_double(file, source, data.sources.front().data()));
  check(nc_put_var_double(file, receiver, receiverPositions.data()));
  check(nc_close(file));
}
