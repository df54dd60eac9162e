#pragma once

// Builds and changes netCDF files by the library's own calls.

#include <gtest/gtest.h>
#include <netcdf.h>

#include <functional>
#include <string>
#include <vector>

/// Builds a file from nothing: attributes Conventions and DataType, then the body.
inline std::function<void(const std::string&)> building(const std::string& dataType,
                                                        std::function<void(int)> body) {
  return [=](const std::string& path) {
    int id = 0;
    ASSERT_EQ(nc_create(path.c_str(), NC_NETCDF4, &id), NC_NOERR);
    nc_put_att_text(id, NC_GLOBAL, "Conventions", 4, "SOFA");
    nc_put_att_text(id, NC_GLOBAL, "DataType", dataType.size(), dataType.c_str());
    body(id);
    nc_close(id);
  };
}

/// A variable with dimensions of its own; its number.
inline int defineVariable(int id, const char* name, nc_type type,
                          const std::vector<std::size_t>& shape) {
  std::vector<int> dimensions;
  for (std::size_t i = 0; i < shape.size(); ++i) {
    int dimension = 0;
    nc_def_dim(id, (std::string(name) + std::to_string(i)).c_str(), shape[i], &dimension);
    dimensions.push_back(dimension);
  }
  int number = -1;
  nc_def_var(id, name, type, static_cast<int>(shape.size()), dimensions.data(), &number);
  return number;
}

/// Opens a sound file, changes it and closes it.
inline std::function<void(const std::string&)> editing(std::function<void(int)> edit) {
  return [=](const std::string& path) {
    int id = 0;
    ASSERT_EQ(nc_open(path.c_str(), NC_WRITE, &id), NC_NOERR);
    edit(id);
    ASSERT_EQ(nc_close(id), NC_NOERR);
  };
}

/// Sets value `index` of a variable.
inline std::function<void(int)> setting(const char* variable, std::vector<std::size_t> index,
                                        double value) {
  return [=](int id) {
    int number = 0;
    ASSERT_EQ(nc_inq_varid(id, variable, &number), NC_NOERR);
    const int status = nc_put_var1_double(id, number, index.data(), &value);
    ASSERT_TRUE(status == NC_NOERR || status == NC_ERANGE) << nc_strerror(status);
  };
}

/// Sets a text attribute of a variable.
inline std::function<void(int)> attributing(const char* variable, const char* attribute,
                                            const std::string& text) {
  return [=](int id) {
    int number = 0;
    ASSERT_EQ(nc_inq_varid(id, variable, &number), NC_NOERR);
    ASSERT_EQ(nc_put_att_text(id, number, attribute, text.size(), text.c_str()), NC_NOERR);
  };
}
