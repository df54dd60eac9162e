// Files made to break the reader.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <netcdf.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <new>

#include "CZelkFileIO.h"
#include "fileio/NcFile.h"
#include "fileio/SofaFile.h"
#include "tests/fileio/NetcdfEdits.h"
#include "tests/fileio/SofaFiles.h"

namespace {

using testing::HasSubstr;

constexpr int M = 3;
constexpr int R = 2;
constexpr int N = 5;

/// Changes a sound file by netCDF calls, or leaves something else at its place.
struct BrokenFile {
  const char* name;
  std::function<void(const std::string& path)> breakIt;
  const char* reason;
};

void PrintTo(const BrokenFile& file, std::ostream* out) { *out << file.name; }

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

const BrokenFile BROKEN[] = {
    {"missing", [](const std::string& p) { std::filesystem::remove(p); }, "there is no such file"},
    {"folder",
     [](const std::string& p) {
       std::filesystem::remove(p);
       std::filesystem::create_directory(p);
     },
     "is not a regular file"},
    {"device",
     [](const std::string& p) {
       std::filesystem::remove(p);
       std::filesystem::create_symlink("/dev/zero", p);
     },
     "is not a regular file"},
    {"empty", [](const std::string& p) { std::ofstream(p, std::ios::trunc); },
     "is not a readable netCDF file"},
    {"text", [](const std::string& p) { std::ofstream(p) << "no netCDF"; },
     "is not a readable netCDF file"},
    {"truncated",
     [](const std::string& p) {
       std::filesystem::resize_file(p, std::filesystem::file_size(p) / 2);
     },
     ": "},
    {"no conventions", editing([](int id) { nc_del_att(id, NC_GLOBAL, "Conventions"); }),
     "attribute Conventions is \"\", expected \"SOFA\""},
    {"impulse responses",
     building("FIR",
              [](int id) {
                defineVariable(id, "Data.IR", NC_DOUBLE, {M, R, N});
              }),
     "variable Data.SamplingRate is missing"},
    {"other data type", building("SOS", [](int) {}),
     "attribute DataType is \"SOS\", expected \"TF\" or \"FIR\""},
    {"no data", building("TF", [](int) {}), "variable Data.Real is missing"},
    {"two dimensions",
     building("TF",
              [](int id) {
                defineVariable(id, "Data.Real", NC_FLOAT, {M, R});
              }),
     "Data.Real has 2 dimensions, expected 3 (measurements, receivers, frequencies)"},
    {"parts that disagree",
     building("TF",
              [](int id) {
                defineVariable(id, "Data.Real", NC_FLOAT, {M, R, N});
                defineVariable(id, "Data.Imag", NC_FLOAT, {M, R, N + 1});
              }),
     "Data.Imag has the shape [3, 2, 6], expected that of Data.Real, [3, 2, 5]"},
    {"text for numbers",
     building("TF",
              [](int id) {
                defineVariable(id, "Data.Real", NC_CHAR, {M, R, N});
                defineVariable(id, "Data.Imag", NC_CHAR, {M, R, N});
                defineVariable(id, "N", NC_CHAR, {N});
              }),
     "variable Data.Real does not hold numbers"},
    {"counts beyond the file",
     building("TF",
              [](int id) {
                for (const char* part : {"Data.Real", "Data.Imag"}) {
                  defineVariable(id, part, NC_FLOAT, {1, 1, 100000000});
                }
                defineVariable(id, "N", NC_DOUBLE, {100000000});
              }),
     "bytes can hold"},
    {"counts that overflow",
     building("TF",
              [](int id) {
                for (const char* part : {"Data.Real", "Data.Imag"}) {
                  defineVariable(id, part, NC_FLOAT, {1, 1, 2000000000});
                }
                defineVariable(id, "N", NC_DOUBLE, {2000000000});
              }),
     "variable Data.Real holds more than"},
    {"more measurements than there are",
     building("TF",
              [](int id) {
                defineVariable(id, "Data.Real", NC_FLOAT, {(1 << 20) + 1, 1, 1});
              }),
     "Data.Real has 1048577 measurements, expected at most 1048576"},
    {"one value in a huge piece", building("TF", putHugePiece),
     "variable Data.Real is stored in pieces (chunks) of 4194304 x 1 x 2 values, expected at most "
     "4194304"},
    {"line break in an attribute", building("TF\nall is well \x1B[2J", [](int) {}),
     "attribute DataType is \"TF?all is well ?[2J\", expected \"TF\" or \"FIR\""},
    {"long attribute", building(std::string(5000, 'x'), [](int) {}), "xxx...\", expected"},
    {"highest frequency", editing(setting("N", {N - 1}, 1e300)), "N(1) is 2000 Hz, expected"},
    {"rate beyond sound", building("TF", putHighFrequency),
     "N ends at 20000000000 Hz, expected at most 5000000 Hz"},
    {"uneven frequencies", editing(setting("N", {2}, 1.0)),
     "N(2) is 1 Hz, expected 4000 Hz for even steps"},
    {"first frequency", editing(setting("N", {0}, 10.0)), "N starts at 10 Hz, expected 0"},
    {"infinite position",
     editing(setting("SourcePosition", {1, 2}, std::numeric_limits<double>::infinity())),
     "SourcePosition: value 5 is inf, expected a finite number"},
    {"position beyond reach", editing(setting("SourcePosition", {1, 2}, -1e10)),
     "SourcePosition: value 5 is -10000000000, expected coordinates within ±1000000000"},
    {"no positions", editing(renamed("SourcePosition")), "variable SourcePosition is missing"},
    {"no receivers", editing(renamed("ReceiverPosition")), "variable ReceiverPosition is missing"},
    {"listener turned to nowhere", editing(setting("ListenerView", {0, 0}, 0.0)),
     "ListenerView and ListenerUp of measurement 0 are parallel or zero, expected two directions"},
};

class BrokenFiles : public testing::TestWithParam<BrokenFile> {};

TEST_P(BrokenFiles, AreRefusedWithAReason) {
  const TemporaryFolder folder;
  const std::string path = folder / "db.sofa";
  writeSofa(path, randomTransferFunctions(M, R, N));
  GetParam().breakIt(path);
  PARNIX_TFDBFileHeader header{};
  testing::internal::CaptureStderr();
  EXPECT_FALSE(CZelkFileIO().ReadHeader(path.c_str(), &header));
  const std::string reason = testing::internal::GetCapturedStderr();
  EXPECT_THAT(reason, HasSubstr(GetParam().reason));
  EXPECT_THAT(reason, testing::StartsWith(path));
  EXPECT_EQ(std::count(reason.begin(), reason.end(), '\n'), 1);
}

INSTANTIATE_TEST_SUITE_P(All, BrokenFiles, testing::ValuesIn(BROKEN));

TEST(HostileFiles, DataThatAreNoNumbersAreRefused) {
  const TemporaryFolder folder;
  const std::string path = folder / "db.sofa";
  const std::pair<double, const char*> cases[] = {{std::nan(""), "is nan"},
                                                  {HUGE_VAL, "is inf"},
                                                  {-HUGE_VAL, "is -inf"},
                                                  {NC_FILL_FLOAT, "was never written"}};
  for (const auto& [value, reason] : cases) {
    writeSofa(path, randomTransferFunctions(M, R, N));
    editing(setting("Data.Imag", {0, 0, 1}, value))(path);
    PARNIX_TFDatabase database{};
    TFDatabaseAlloc(&database, M, R, N);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(CZelkFileIO().ReadData(path.c_str(), &database.transferFunctions));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              path + ": Data.Imag: value 1 " + reason + ", expected a finite number\n");
    TFDatabaseFree(&database);
  }
  PARNIX_TFDBFileHeader header{};
  testing::internal::CaptureStderr();
  EXPECT_FALSE(CZelkFileIO().ReadHeader("", &header));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "the name of the transfer-function file is empty\n");
}

TEST(HostileFiles, TinyListenerVectorsAreDirections) {
  const TemporaryFolder folder;
  const std::string path = folder / "db.sofa";
  const SofaTransferFunctions data = randomTransferFunctions(M, R, N);
  writeSofa(path, data);
  editing(setting("ListenerView", {0, 0}, 1e-170))(path);
  const SofaFile file(path);
  for (std::size_t m = 0; m < M; ++m) {
    for (std::size_t c = 0; c < 3; ++c) {
      EXPECT_NEAR(file.sourcePositions()[m][c], data.sourcePositions[m][c], 1e-12);
    }
  }
}

TEST(HostileFiles, NamesOfFilesStayOnOneLine) {
  const TemporaryFolder folder;
  PARNIX_TFDBFileHeader header{};
  testing::internal::CaptureStderr();
  EXPECT_FALSE(CZelkFileIO().ReadHeader((folder / "a\nb").c_str(), &header));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), (folder / "a?b") + ": there is no such file\n");
}

/// Whether work ends by itself, in a child process, within ten seconds.
bool survives(const std::function<void()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(10);
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDERR_FILENO);
    work();
    _exit(0);
  }
  int status = 0;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Reads everything by netCDF's own calls: what it does not survive is the fault of the library.
void readByLibrary(const std::string& path) {
  int id = 0;
  if (nc_open(path.c_str(), NC_NOWRITE, &id) != NC_NOERR) return;
  for (const char* name : {"Data.Real", "Data.Imag", "N", "SourcePosition", "ReceiverPosition",
                           "ListenerPosition", "ListenerView", "ListenerUp"}) {
    int number = 0;
    if (nc_inq_varid(id, name, &number) != NC_NOERR) continue;
    for (const char* attribute : {"Type", "Units"}) {
      nc_type type = NC_NAT;
      std::size_t length = 0;
      nc_inq_att(id, number, attribute, &type, &length);
    }
    std::vector<double> values(1000);
    const std::size_t start[3] = {0, 0, 0};
    const std::size_t count[3] = {1, 1, 1};
    nc_get_vara_double(id, number, start, count, values.data());
  }
  nc_close(id);
}

/// Loads a database as a node does.
void load(const std::string& path) {
  CZelkFileIO reader;
  PARNIX_TFDBFileHeader header{};
  if (!reader.ReadHeader(path.c_str(), &header)) return;
  PARNIX_TFDatabase database{};
  TFDatabaseAlloc(&database, header.sources, header.microphones, header.bins);
  reader.ReadInfo(path.c_str(), &header, &database.sources, &database.microphones, &database.bins,
                  true);
  reader.ReadData(path.c_str(), &database.transferFunctions);
  TFDatabaseFree(&database);
}

TEST(HostileFiles, RandomDamageIsSurvivedWhereTheLibraryBelowSurvivesIt) {
  const TemporaryFolder folder;
  std::mt19937 generator(3);
  constexpr int ROUNDS = 60;
  int judged = 0;
  for (int round = 0; round < ROUNDS; ++round) {
    const std::string path = folder / std::to_string(round);
    writeSofa(path, randomTransferFunctions(M, R, N));
    const auto size = static_cast<unsigned>(std::filesystem::file_size(path));
    {
      std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
      for (int i = 0; i < 8; ++i) {
        file.seekp(generator() % size);
        file.put(static_cast<char>(generator()));
      }
    }
    if (!survives([&] { readByLibrary(path); })) continue;
    ++judged;
    EXPECT_TRUE(survives([&] { load(path); })) << "round " << round;
  }
  EXPECT_GT(judged, ROUNDS / 2);
}

TEST(TFDatabaseAlloc, RefusesCountsWhoseProductHasNoSize) {
  PARNIX_TFDatabase database{};
  constexpr int MANY = std::numeric_limits<int>::max();
  EXPECT_THROW(TFDatabaseAlloc(&database, MANY, MANY, MANY), std::bad_alloc);
  EXPECT_EQ(database.sources.positions, nullptr);
  EXPECT_EQ(database.transferFunctions.count, 0U);
}

}  // namespace
