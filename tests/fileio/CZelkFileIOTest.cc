#include "CZelkFileIO.h"

#include <gmock/gmock.h>

#include <cmath>
#include <complex>

#include "fileio/SofaFile.h"
#include "tests/fileio/NetcdfEdits.h"
#include "tests/fileio/SofaFiles.h"

namespace {

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
  editing(attributing("SourcePosition", "Type", "spherical"))(path);
  const SofaFile file(path);
  EXPECT_NEAR(file.sourcePositions()[0][0], 0.0, 1e-12);
  EXPECT_NEAR(file.sourcePositions()[0][1], 2.0, 1e-12);
  EXPECT_NEAR(file.sourcePositions()[1][0], std::sqrt(0.75), 1e-12);
  EXPECT_NEAR(file.sourcePositions()[1][2], 0.5, 1e-12);
}

// The up direction has no Type of its own: (0, 90, 1) is straight up beside a spherical view.
TEST(SofaFile, ListenersUpIsGivenAsTheViewIs) {
  const TemporaryFolder folder;
  const std::string path = folder / "view.sofa";
  SofaTransferFunctions data = randomTransferFunctions(2, 1, 3);
  data.sourcePositions = {{0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}};
  writeSofa(path, data);
  editing([](int id) {
    attributing("ListenerView", "Type", "spherical")(id);
    const double view[] = {0.0, 0.0, 1.0};
    const double up[] = {0.0, 90.0, 1.0};
    for (std::size_t c = 0; c < 3; ++c) {
      setting("ListenerView", {0, c}, view[c])(id);
      setting("ListenerUp", {0, c}, up[c])(id);
    }
  })(path);
  const SofaFile file(path);
  for (std::size_t m = 0; m < 2; ++m) {
    for (std::size_t c = 0; c < 3; ++c) {
      EXPECT_NEAR(file.sourcePositions()[m][c], data.sourcePositions[m][c], 1e-12) << m;
    }
  }
}

TEST(SofaFile, RemarksOneSourcePositionForAllMeasurements) {
  const TemporaryFolder folder;
  const std::string path = folder / "one.sofa";
  building("FIR", [](int id) {
    const std::vector<float> values(12, 1.0F);
    nc_put_var_float(id, defineVariable(id, "Data.IR", NC_FLOAT, {3, 1, 4}), values.data());
    const double rate = 16000.0;
    nc_put_var_double(id, defineVariable(id, "Data.SamplingRate", NC_DOUBLE, {1}), &rate);
    for (const char* position : {"SourcePosition", "ReceiverPosition"}) {
      const double place[] = {0.0, 2.0, 0.0};
      nc_put_var_double(id, defineVariable(id, position, NC_DOUBLE, {1, 3}), place);
      attributing(position, "Type", "cartesian")(id);
      attributing(position, "Units", "metre")(id);
    }
  })(path);
  const SofaFile file(path);
  EXPECT_EQ(file.sourcePositions(), (std::vector<SofaFile::Position>(3, {0.0, 2.0, 0.0})));
  EXPECT_THAT(file.warnings(),
              testing::ElementsAre("all 3 measurements share one source position"));
}

}  // namespace
