#pragma once

#include <gtest/gtest.h>
#include <netcdf.h>

#include <string>
#include <vector>

#include "fileio/SofaFile.h"

/// A SOFA file of impulse responses, as measuring programs write them.
struct FirFile {
  std::vector<SofaFile::Position> sources;    ///< M
  std::vector<SofaFile::Position> receivers;  ///< R
  double rate = 16000.0;
  std::size_t length = 0;         ///< N
  std::vector<double> responses;  ///< M · R · N
  std::vector<double> delays;     ///< R, or M · R: samples
  std::string units = "metre";

  void write(const std::string& path) const {
    ASSERT_EQ(nc_create(path.c_str(), NC_NETCDF4 | NC_CLOBBER, &id), NC_NOERR);
    text(NC_GLOBAL, "Conventions", "SOFA");
    text(NC_GLOBAL, "DataType", "FIR");
    const std::size_t R = receivers.size();
    values("Data.IR", {sources.size(), R, length}, responses);
    values("Data.Delay", {delays.size() / R, R}, delays);
    values("Data.SamplingRate", {1}, {rate});
    position("SourcePosition", sources);
    position("ReceiverPosition", receivers);
    ASSERT_EQ(nc_close(id), NC_NOERR);
  }

 private:
  void text(int variable, const char* name, const std::string& value) const {
    ASSERT_EQ(nc_put_att_text(id, variable, name, value.size(), value.c_str()), NC_NOERR);
  }

  int values(const std::string& name, const std::vector<std::size_t>& shape,
             const std::vector<double>& data) const {
    std::vector<int> dimensions;
    for (std::size_t i = 0; i < shape.size(); ++i) {
      int dimension = 0;
      EXPECT_EQ(nc_def_dim(id, (name + std::to_string(i)).c_str(), shape[i], &dimension), NC_NOERR);
      dimensions.push_back(dimension);
    }
    int variable = 0;
    EXPECT_EQ(nc_def_var(id, name.c_str(), NC_DOUBLE, static_cast<int>(shape.size()),
                         dimensions.data(), &variable),
              NC_NOERR);
    EXPECT_EQ(nc_put_var_double(id, variable, data.data()), NC_NOERR);
    return variable;
  }

  void position(const char* name, const std::vector<SofaFile::Position>& rows) const {
    std::vector<double> flat;
    for (const auto& row : rows) flat.insert(flat.end(), row.begin(), row.end());
    const int variable = values(name, {rows.size(), 3}, flat);
    text(variable, "Type", "cartesian");
    text(variable, "Units", units);
  }

  mutable int id = 0;
};
