#pragma once

#include <string>
#include <vector>

#include "fileio/SofaFile.h"
#include "tests/fileio/NetcdfEdits.h"

/// A SOFA file of impulse responses, as measuring programs write them.
struct FirFile {
  std::vector<BF::Position> sources{};    ///< M
  std::vector<BF::Position> receivers{};  ///< R
  double rate = 16000.0;
  std::size_t length = 1;           ///< N
  std::vector<double> responses{};  ///< M · R · N
  std::vector<double> delays{};     ///< R, or M · R: samples
  std::string units = "metre";

  void write(const std::string& path) const {
    building("FIR", [this](int id) {
      const std::size_t R = receivers.size();
      put(id, "Data.IR", {sources.size(), R, length}, responses);
      put(id, "Data.Delay", {delays.size() / R, R}, delays);
      put(id, "Data.SamplingRate", {1}, {rate});
      putPositions(id, "SourcePosition", sources);
      putPositions(id, "ReceiverPosition", receivers);
    })(path);
  }

 private:
  static void put(int id, const char* name, const std::vector<std::size_t>& shape,
                  const std::vector<double>& values) {
    const int variable = defineVariable(id, name, NC_DOUBLE, shape);
    ASSERT_EQ(nc_put_var_double(id, variable, values.data()), NC_NOERR) << name;
  }

  void putPositions(int id, const char* name, const std::vector<BF::Position>& rows) const {
    std::vector<double> flat;
    for (const auto& row : rows) flat.insert(flat.end(), row.begin(), row.end());
    put(id, name, {rows.size(), 3}, flat);
    attributing(name, "Type", "cartesian")(id);
    attributing(name, "Units", units)(id);
  }
};
