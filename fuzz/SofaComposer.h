#pragma once

#include <netcdf.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "fuzz/Fuzzing.h"

/// Writes a netCDF file, of the classic format (quicker) or netCDF-4, that looks like a SOFA file,
/// with what the input chooses to be wrong about it: types, shapes, values, attributes, missing and
/// unwritten variables, pieces. netCDF itself writes it, so that it is the reader which is tested
/// and not the library below. An input of zeros makes a valid file.
class SofaComposer {
 public:
  SofaComposer(FuzzedDataProvider& input, const std::string& path)
      : choices(input), isClassic(!choices.ConsumeBool()) {
    std::remove(path.c_str());  // what netCDF could not close is another file now
    const int format = isClassic ? NC_64BIT_DATA : NC_NETCDF4;
    require(nc_create(path.c_str(), format | NC_CLOBBER, &id) == NC_NOERR, "nc_create");
    const bool impulses = choices.ConsumeBool();
    const std::size_t M = 1 + choices.ConsumeIntegralInRange<std::size_t>(0, 5);
    const std::size_t R = 1 + choices.ConsumeIntegralInRange<std::size_t>(0, 2);
    const std::size_t N = 1 + choices.ConsumeIntegralInRange<std::size_t>(0, 20);
    text(NC_GLOBAL, "Conventions", "SOFA");
    text(NC_GLOBAL, "DataType", impulses ? "FIR" : "TF");
    if (impulses) {
      variable("Data.IR", NC_DOUBLE, {M, R, N}, 1.0, -0.01);
      variable("Data.SamplingRate", NC_DOUBLE, {1}, 48000.0, 0.0);
      variable("Data.Delay", NC_DOUBLE, {choices.ConsumeBool() ? M : 1, R}, 0.0, 0.5);
    } else {
      variable("Data.Real", NC_FLOAT, {M, R, N}, 1.0, -0.01);
      variable("Data.Imag", NC_FLOAT, {M, R, N}, 0.0, 0.01);
      variable("N", NC_DOUBLE, {N}, 0.0, 8000.0 / static_cast<double>(N));
    }
    position("SourcePosition", M, 1.0, 0.37);
    position("ReceiverPosition", R, 0.05, 0.02);
    position("ListenerPosition", 1, 0.0, 0.0);
    if (choices.ConsumeBool()) position("ListenerView", M, -1.0, -0.37);
    if (choices.ConsumeBool()) position("ListenerUp", M, 0.5, -0.07);
    nc_enddef(id);
    for (const Values& values : contents) {
      const Shape start(values.counts.size(), 0);
      nc_put_vara_double(id, values.variable, start.data(), values.counts.data(),
                         values.values.data());
    }
    if (nc_close(id) != NC_NOERR) nc_abort(id);
  }

  /// Whether nothing was made wrong on purpose.
  bool isValid() const { return valid; }

 private:
  using Shape = std::vector<std::size_t>;

  /// What is written when all variables are defined.
  struct Values {
    int variable;
    Shape counts;
    std::vector<double> values;
  };

  bool odd() {
    const bool result = choices.ConsumeIntegral<std::uint8_t>() > 240;
    valid = valid && !result;
    return result;
  }

  void text(int variableNumber, const char* name, std::string value) {
    if (odd()) value = choices.PickValueInArray({"", "TF", "cartesian", "spherical", "metres"});
    if (odd()) value = choices.ConsumeRandomLengthString(100);
    if (odd()) return;
    if (odd()) {
      const double numbers[2] = {0.0, 1.0};
      nc_put_att_double(id, variableNumber, name, NC_DOUBLE, 2, numbers);
    } else if (odd()) {
      const char* strings[2] = {value.c_str(), nullptr};
      nc_put_att_string(id, variableNumber, name, choices.ConsumeIntegralInRange(0, 2), strings);
    } else {
      nc_put_att_text(id, variableNumber, name, value.size(), value.c_str());
    }
  }

  void position(const char* name, std::size_t rows, double first, double step) {
    Shape shape = {rows, 3};
    if (choices.ConsumeBool()) shape.push_back(1 + choices.ConsumeIntegralInRange(0, 2));
    const int number = variable(name, NC_DOUBLE, shape, first, step);
    text(number, "Type", choices.ConsumeBool() ? "spherical" : "cartesian");
    text(number, "Units", "metre");
  }

  /// A variable whose value i is first + i · step; its number, or −1.
  int variable(const char* name, nc_type type, Shape shape, double first, double step) {
    if (odd()) return -1;
    if (odd()) type = choices.ConsumeIntegralInRange<nc_type>(NC_BYTE, NC_STRING);
    if (odd()) shape = anyShape();
    std::vector<int> dimensions;
    for (const std::size_t length : shape) {
      // One dimension for each length: they cost most of the time.
      const auto [known, isNew] = dimensionOf.emplace(length, 0);
      if (isNew) nc_def_dim(id, ("d" + std::to_string(length)).c_str(), length, &known->second);
      dimensions.push_back(known->second);
    }
    int number = -1;
    nc_def_var(id, name, type, static_cast<int>(shape.size()), dimensions.data(), &number);
    if (number < 0) return number;
    const bool inPieces = odd() && cut(number, shape.size());
    if (!odd()) fill(number, shape, inPieces, first, step);
    return number;
  }

  Shape anyShape() {
    constexpr std::size_t LENGTHS[] = {1,     2,       3,       NC_UNLIMITED, 1000,
                                       70000, 1 << 20, 1 << 21, 2147483647,   4294967295};
    Shape shape(choices.ConsumeIntegralInRange<std::size_t>(0, 5));
    std::size_t count = 1;
    for (std::size_t& length : shape) {
      length = choices.PickValueInArray(LENGTHS);
      // A file of the classic format is as large as its variables.
      if (isClassic && length > 1000000 / count) length = 1;
      count *= std::max<std::size_t>(1, length);
    }
    return shape;
  }

  /// Stores the variable in pieces, compressed or not, if netCDF takes them.
  bool cut(int number, std::size_t rank) {
    Shape pieces(rank);
    std::size_t count = 1;
    for (std::size_t& length : pieces) {
      length = choices.PickValueInArray({1, 2, 3, 1000, 1 << 22});
      if (length > (std::size_t{1} << 22) / count) length = 1;  // 32 MB in all
      count *= length;
    }
    if (choices.ConsumeBool()) nc_def_var_deflate(id, number, 1, 1, 1);
    return rank > 0 && nc_def_var_chunking(id, number, NC_CHUNKED, pieces.data()) == NC_NOERR;
  }

  void fill(int number, Shape shape, bool inPieces, double first, double step) {
    constexpr std::size_t MAX_SIZE = 4096;
    std::size_t count = 1;
    for (std::size_t& length : shape) {
      if (length == NC_UNLIMITED) length = 2;
      if (length > MAX_SIZE / count) {
        if (!inPieces) return;  // a whole variable of this size would be written
        length = 1;
      }
      count *= length;
    }
    std::vector<double> values(count);
    for (std::size_t i = 0; i < count; ++i) values[i] = first + static_cast<double>(i) * step;
    while (odd()) values[choices.ConsumeIntegralInRange<std::size_t>(0, count - 1)] = anyValue();
    contents.push_back({number, shape, values});
  }

  double anyValue() {
    if (choices.ConsumeBool()) return choices.ConsumeFloatingPoint<double>();
    return choices.PickValueInArray({0.0, 1.0, -1.0, 1e9, -1e9, 1e17, 1e38, -3e38, 1e154, 1e300,
                                     1e-40, 1e-160, 5e-324, HUGE_VAL, std::nan(""),
                                     double{NC_FILL_DOUBLE}});
  }

  FuzzedDataProvider& choices;
  bool isClassic;
  int id = -1;
  std::map<std::size_t, int> dimensionOf;
  std::vector<Values> contents;
  bool valid = true;
};
