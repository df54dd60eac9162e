// Files made to break the reader. scripts/fuzz.sh makes many more.

#include <gmock/gmock.h>
#include <netcdf.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>

#include "CZelkFileIO.h"
#include "tests/fileio/NetcdfEdits.h"
#include "tests/fileio/SofaFiles.h"

namespace {

constexpr int M = 3;
constexpr int R = 2;
constexpr int N = 5;

/// A first measurement alone in a piece for four million.
void putHugePiece(int id) {
  int dimensions[3];
  nc_def_dim(id, "M", NC_UNLIMITED, &dimensions[0]);
  nc_def_dim(id, "R", 1, &dimensions[1]);
  nc_def_dim(id, "K", 2, &dimensions[2]);
  int number = 0;
  nc_def_var(id, "Data.Real", NC_FLOAT, 3, dimensions, &number);
  const std::size_t piece[3] = {1 << 22, 1, 2};
  ASSERT_EQ(nc_def_var_chunking(id, number, NC_CHUNKED, piece), NC_NOERR);
  nc_def_var_deflate(id, number, 0, 1, 1);
  const std::size_t start[3] = {0, 0, 0};
  const std::size_t count[3] = {1, 1, 2};
  const float values[2] = {1.0F, 1.0F};
  ASSERT_EQ(nc_put_vara_float(id, number, start, count, values), NC_NOERR);
}

/// Two frequencies, 0 and a million times what one can hear.
void putHighFrequency(int id) {
  defineVariable(id, "Data.Real", NC_FLOAT, {1, 1, 2});
  defineVariable(id, "Data.Imag", NC_FLOAT, {1, 1, 2});
  const double frequencies[2] = {0.0, 2e10};
  nc_put_var_double(id, defineVariable(id, "N", NC_DOUBLE, {2}), frequencies);
}

/// Transfer functions of a shape that the file does not fill.
std::function<void(const std::string&)> claiming(const std::vector<std::size_t>& shape) {
  return building("TF", [=](int id) {
    defineVariable(id, "Data.Real", NC_FLOAT, shape);
    defineVariable(id, "Data.Imag", NC_FLOAT, shape);
  });
}

TEST(BrokenFiles, AreRefusedWithAReasonOnOneLine) {
  namespace fs = std::filesystem;
  struct Case {
    std::function<void(const std::string& path)> breakIt;  // changes or replaces a sound file
    std::string reason;
  };
  const double INF = std::numeric_limits<double>::infinity();
  const auto text = [](int id) {
    for (const char* name : {"Data.Real", "Data.Imag"})
      defineVariable(id, name, NC_CHAR, {M, R, N});
  };
  const auto otherShapes = [](int id) {
    defineVariable(id, "Data.Real", NC_FLOAT, {M, R, N});
    defineVariable(id, "Data.Imag", NC_FLOAT, {M, R, N + 1});
  };
  const auto samples = [](int id) { defineVariable(id, "Data.IR", NC_DOUBLE, {M, R, N}); };
  const auto nothing = [](int) {};
  const Case cases[] = {
      {[](const std::string& p) { fs::remove(p); }, "there is no such file"},
      {[](const std::string& p) { fs::remove(p), fs::create_directory(p); },
       "is not a regular file"},
      {[](const std::string& p) { fs::remove(p), fs::create_symlink("/dev/zero", p); },
       "is not a regular file"},
      {[](const std::string& p) { std::ofstream(p) << "no netCDF"; },
       "is not a readable netCDF file"},
      {[](const std::string& p) { fs::resize_file(p, fs::file_size(p) / 2); }, ": "},
      {editing([](int id) { nc_del_att(id, NC_GLOBAL, "Conventions"); }),
       "attribute Conventions is \"\", expected \"SOFA\""},
      {building("SOS", nothing), "attribute DataType is \"SOS\", expected \"TF\" or \"FIR\""},
      {building("TF\nall is well \x1B[2J", nothing),
       "attribute DataType is \"TF?all is well ?[2J\", expected \"TF\" or \"FIR\""},
      {building(std::string(5000, 'x'), nothing), "xxx...\", expected"},
      {building("FIR", samples), "variable Data.SamplingRate is missing"},
      {building("TF", nothing), "variable Data.Real is missing"},
      {claiming({M, R}),
       "Data.Real has 2 dimensions, expected 3 (measurements, receivers, frequencies)"},
      {building("TF", otherShapes),
       "Data.Imag has the shape [3, 2, 6], expected that of Data.Real, [3, 2, 5]"},
      {building("TF", text), "variable Data.Real does not hold numbers"},
      {claiming({1, 1, 100000000}), "bytes can hold"},
      {claiming({1, 1, 2000000000}), "variable Data.Real holds more than"},
      {claiming({(1 << 20) + 1, 1, 1}),
       "Data.Real has 1048577 measurements, expected at most 1048576"},
      {building("TF", putHugePiece),
       "variable Data.Real is stored in pieces (chunks) of 4194304 x 1 x 2 values, expected at "
       "most 4194304"},
      {building("TF", putHighFrequency), "N ends at 20000000000 Hz, expected at most 5000000 Hz"},
      {editing(setting("N", {N - 1}, 1e300)), "N(1) is 2000 Hz, expected"},
      {editing(setting("N", {2}, 1.0)), "N(2) is 1 Hz, expected 4000 Hz for even steps"},
      {editing(setting("N", {0}, 10.0)), "N starts at 10 Hz, expected 0"},
      {editing(setting("SourcePosition", {1, 2}, INF)),
       "SourcePosition: value 5 is inf, expected a finite number"},
      {editing(setting("SourcePosition", {1, 2}, -1e10)),
       "SourcePosition: value 5 is -10000000000, expected coordinates within ±1000000000"},
      {editing(setting("ListenerView", {0, 0}, 0.0)),
       "ListenerView and ListenerUp of measurement 0 are parallel or zero, expected two "
       "directions"},
  };
  const TemporaryFolder folder;
  for (const Case& c : cases) {
    const std::string path = folder / "a\nb.sofa";
    fs::remove_all(path);
    writeSofa(path, randomTransferFunctions(M, R, N));
    c.breakIt(path);
    PARNIX_TFDBFileHeader header{};
    testing::internal::CaptureStderr();
    EXPECT_FALSE(CZelkFileIO().ReadHeader(path.c_str(), &header));
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_THAT(told, testing::StartsWith(folder / "a?b.sofa: "));
    EXPECT_THAT(told, testing::HasSubstr(c.reason));
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << told;
  }
}

TEST(BrokenFiles, DataThatAreNoNumbersAreRefused) {
  const TemporaryFolder folder;
  const std::string path = folder / "db.sofa";
  const std::pair<double, const char*> cases[] = {
      {std::nan(""), "is nan"}, {-HUGE_VAL, "is -inf"}, {NC_FILL_FLOAT, "was never written"}};
  for (const auto& [value, reason] : cases) {
    writeSofa(path, randomTransferFunctions(M, R, N));
    editing(setting("Data.Imag", {0, 0, 1}, value))(path);
    std::vector<float> values(2 * M * R * N);
    PARNIX_ComplexArray array{values.data(), M * R * N};
    testing::internal::CaptureStderr();
    EXPECT_FALSE(CZelkFileIO().ReadData(path.c_str(), &array));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              path + ": Data.Imag: value 1 " + reason + ", expected a finite number\n");
  }
}

}  // namespace
