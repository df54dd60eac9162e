#include "CZelkFileIO.h"

#include <gmock/gmock.h>
#include <netcdf.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>

#include "fileio/SofaFile.h"
#include "tests/fileio/SofaFiles.h"

namespace {

using testing::HasSubstr;

constexpr int M = 3;
constexpr int R = 2;
constexpr int N = 5;

TEST(CZelkFileIO, ReadsBackWhatTheWriterWroteConjugated) {
  const TemporaryFolder folder;
  const std::string path = folder / "db.sofa";
  const SofaTransferFunctions data = randomTransferFunctions(M, R, N);
  writeSofa(path, data);

  CZelkFileIO reader;
  PARNIX_TFDBFileHeader header{};
  ASSERT_TRUE(reader.ReadHeader(path.c_str(), &header));
  EXPECT_EQ(header.bins, N);
  EXPECT_EQ(header.microphones, R);
  EXPECT_EQ(header.sources, M);
  EXPECT_EQ(header.samplingRate, 16000);

  PARNIX_TFDatabase database{};
  TFDatabaseAlloc(&database, header.sources, header.microphones, header.bins);
  ASSERT_TRUE(reader.ReadInfo(path.c_str(), &header, &database.sources, &database.microphones,
                              &database.bins, true));
  ASSERT_TRUE(reader.ReadData(path.c_str(), &database.transferFunctions));
  for (int s = 0; s < M; ++s) {
    EXPECT_EQ(database.sources.ids[s], s);
    EXPECT_FLOAT_EQ(database.sources.positions[s].x, 1.0F + s);
    EXPECT_FLOAT_EQ(database.sources.positions[s].y, 2.0F - s);
    EXPECT_FLOAT_EQ(database.sources.positions[s].z, 0.25F * s);
  }
  EXPECT_FLOAT_EQ(database.microphones.positions[1].y, 0.1F);
  for (int k = 0; k < N; ++k) {
    for (int s = 0; s < M; ++s) {
      for (int m = 0; m < R; ++m) {
        const float* value = database.transferFunctions.values + 2 * ((k * M + s) * R + m);
        const std::complex<float> h = data.values[(s * R + m) * N + k];
        EXPECT_EQ(value[0], h.real());
        EXPECT_EQ(value[1], -h.imag());
      }
    }
  }
  TFDatabaseFree(&database);
  EXPECT_EQ(database.transferFunctions.values, nullptr);
}

TEST(CZelkFileIO, RefusesArraysThatDoNotFitTheFile) {
  const TemporaryFolder folder;
  const std::string path = folder / "db.sofa";
  writeSofa(path, randomTransferFunctions(M, R, N));
  CZelkFileIO reader;
  PARNIX_TFDBFileHeader header{1, 16000, N, R, M + 1};
  PARNIX_TFDatabase database{};
  TFDatabaseAlloc(&database, M + 1, R, N);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(reader.ReadInfo(path.c_str(), &header, &database.sources, &database.microphones,
                               &database.bins, true));
  EXPECT_FALSE(reader.ReadData(path.c_str(), &database.transferFunctions));
  EXPECT_FALSE(reader.LoadPositionData(path.c_str(), &database.sources));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            path + ": the file holds 3 sources, expected 4\n" + path +
                ": the file holds 30 values, expected 40\n" + path +
                ": the file holds 2 microphones, expected 4\n");
  TFDatabaseFree(&database);
}

/// Changes a sound file by netCDF calls, or leaves something else at its place.
struct BrokenFile {
  const char* name;
  std::function<void(const std::string& path)> breakIt;
  const char* reason;
};

void PrintTo(const BrokenFile& file, std::ostream* out) { *out << file.name; }

/// Builds a file from nothing: attributes Conventions and DataType, then the body.
std::function<void(const std::string&)> building(const char* dataType,
                                                 std::function<void(int)> body) {
  return [=](const std::string& path) {
    int id = 0;
    ASSERT_EQ(nc_create(path.c_str(), NC_NETCDF4, &id), NC_NOERR);
    nc_put_att_text(id, NC_GLOBAL, "Conventions", 4, "SOFA");
    nc_put_att_text(id, NC_GLOBAL, "DataType", std::strlen(dataType), dataType);
    body(id);
    nc_close(id);
  };
}

int defineVariable(int id, const char* name, nc_type type, const std::vector<std::size_t>& shape) {
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

std::function<void(const std::string&)> editing(std::function<void(int)> edit) {
  return [=](const std::string& path) {
    int id = 0;
    ASSERT_EQ(nc_open(path.c_str(), NC_WRITE, &id), NC_NOERR);
    edit(id);
    ASSERT_EQ(nc_close(id), NC_NOERR);
  };
}

/// Sets value `index` of a variable.
std::function<void(int)> setting(const char* variable, std::vector<std::size_t> index,
                                 double value) {
  return [=](int id) {
    int number = 0;
    ASSERT_EQ(nc_inq_varid(id, variable, &number), NC_NOERR);
    const int status = nc_put_var1_double(id, number, index.data(), &value);
    ASSERT_TRUE(status == NC_NOERR || status == NC_ERANGE) << nc_strerror(status);
  };
}

std::function<void(int)> renamed(const char* variable) {
  return [=](int id) {
    int number = 0;
    ASSERT_EQ(nc_inq_varid(id, variable, &number), NC_NOERR);
    ASSERT_EQ(nc_rename_var(id, number, "Elsewhere"), NC_NOERR);
  };
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
     "variable N does not hold numbers"},
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
     "variable N holds more than"},
    {"uneven frequencies", editing(setting("N", {2}, 1.0)),
     "N(2) is 1 Hz, expected 4000 Hz for even steps"},
    {"first frequency", editing(setting("N", {0}, 10.0)), "N starts at 10 Hz, expected 0"},
    {"infinite position",
     editing(setting("SourcePosition", {1, 2}, std::numeric_limits<double>::infinity())),
     "SourcePosition: value 5 is inf, expected a finite number"},
    {"no positions", editing(renamed("SourcePosition")), "variable SourcePosition is missing"},
    {"no receivers", editing(renamed("ReceiverPosition")), "variable ReceiverPosition is missing"},
    {"listener turned to nowhere", editing(setting("ListenerView", {0, 0}, 0.0)),
     "ListenerView and ListenerUp of measurement 0 are parallel or zero"},
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

TEST(CZelkFileIO, RefusesDataThatIsNotFiniteAndAnEmptyName) {
  const TemporaryFolder folder;
  const std::string path = folder / "db.sofa";
  for (const double bad : {std::nan(""), 1e300}) {
    writeSofa(path, randomTransferFunctions(M, R, N));
    editing(bad > 0 ? setting("Data.Imag", {0, 0, 1}, HUGE_VAL)
                    : setting("Data.Imag", {0, 0, 1}, bad))(path);
    PARNIX_TFDatabase database{};
    TFDatabaseAlloc(&database, M, R, N);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(CZelkFileIO().ReadData(path.c_str(), &database.transferFunctions));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Data.Imag: value 1 is"));
    TFDatabaseFree(&database);
  }
  PARNIX_TFDBFileHeader header{};
  testing::internal::CaptureStderr();
  EXPECT_FALSE(CZelkFileIO().ReadHeader("", &header));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "the name of the transfer-function file is empty\n");
}

TEST(CZelkFileIO, SurvivesRandomDamage) {
  const TemporaryFolder folder;
  std::mt19937 generator(3);
  testing::internal::CaptureStderr();
  for (int round = 0; round < 40; ++round) {
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
    PARNIX_TFDBFileHeader header{};
    CZelkFileIO().ReadHeader(path.c_str(), &header);
  }
  testing::internal::GetCapturedStderr();
}

TEST(SofaFile, PutsRoomCoordinatesIntoTheListenersFrame) {
  const TemporaryFolder folder;
  const std::string path = folder / "room.sofa";
  SofaTransferFunctions data = randomTransferFunctions(2, 1, 3);
  data.sourcePositions = {{2.0, 5.0, 1.0}, {1.0, 3.0, 2.0}};
  writeSofa(path, data);
  editing([](int id) {
    setting("ListenerPosition", {0, 0}, 2.0)(id);
    setting("ListenerPosition", {0, 1}, 3.0)(id);
    setting("ListenerPosition", {0, 2}, 1.0)(id);
    setting("ListenerView", {0, 0}, 0.0)(id);
    setting("ListenerView", {0, 1}, 2.0)(id);  // looks along +y, so +x is on its right
  })(path);
  const SofaFile file(path);
  const SofaFile::Position ahead = file.sourcePositions()[0];
  const SofaFile::Position leftAbove = file.sourcePositions()[1];
  EXPECT_THAT(ahead, testing::ElementsAre(2.0, 0.0, 0.0));
  EXPECT_THAT(leftAbove, testing::ElementsAre(0.0, 1.0, 1.0));
}

TEST(SofaFile, ReadsSphericalPositionsInDegrees) {
  const TemporaryFolder folder;
  const std::string path = folder / "spherical.sofa";
  SofaTransferFunctions data = randomTransferFunctions(2, 1, 3);
  data.sourcePositions = {{90.0, 0.0, 2.0}, {0.0, 30.0, 1.0}};
  writeSofa(path, data);
  editing([](int id) {
    int number = 0;
    ASSERT_EQ(nc_inq_varid(id, "SourcePosition", &number), NC_NOERR);
    ASSERT_EQ(nc_put_att_text(id, number, "Type", 9, "spherical"), NC_NOERR);
  })(path);
  const SofaFile file(path);
  EXPECT_NEAR(file.sourcePositions()[0][0], 0.0, 1e-12);
  EXPECT_NEAR(file.sourcePositions()[0][1], 2.0, 1e-12);
  EXPECT_NEAR(file.sourcePositions()[1][0], std::sqrt(0.75), 1e-12);
  EXPECT_NEAR(file.sourcePositions()[1][2], 0.5, 1e-12);
}

}  // namespace
