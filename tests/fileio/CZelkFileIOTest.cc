#include "CZelkFileIO.h"

#include <gmock/gmock.h>

#include <cmath>
#include <complex>
#include <limits>
#include <new>

#include "fileio/SofaFile.h"
#include "tests/fileio/NetcdfEdits.h"
#include "tests/fileio/SofaFiles.h"

namespace {

constexpr int M = 3;
constexpr int R = 2;
constexpr int N = 5;

TEST(CZelkFileIO, ReadsBackWhatTheWriterWroteConjugated) {
  const TestFolder folder;
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

TEST(CZelkFileIO, RefusesArraysThatDoNotFitTheFileOrTheMemory) {
  const TestFolder folder;
  const std::string path = folder / "db.sofa";
  writeSofa(path, randomTransferFunctions(M, R, N));
  CZelkFileIO reader;
  const PARNIX_TFDBFileHeader header{1, 16000, N, R, M + 1};
  PARNIX_TFDatabase database{};
  TFDatabaseAlloc(&database, M + 1, R, N);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(reader.ReadInfo(path.c_str(), &header, &database.sources, &database.microphones,
                               &database.bins, true));
  EXPECT_FALSE(reader.ReadData(path.c_str(), &database.transferFunctions));
  EXPECT_FALSE(reader.LoadPositionData(path.c_str(), &database.sources));
  EXPECT_FALSE(reader.LoadPositionData("", &database.microphones));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            path + ": the file holds 3 sources, expected 4\n" + path +
                ": the file holds 30 values, expected 40\n" + path +
                ": the file holds 2 microphones, expected 4\n"
                "the name of the transfer-function file is empty\n");
  TFDatabaseFree(&database);

  constexpr int MANY = std::numeric_limits<int>::max();
  EXPECT_THROW(TFDatabaseAlloc(&database, MANY, MANY, MANY), std::bad_alloc);
  EXPECT_EQ(database.sources.positions, nullptr);
}

/// Sets the first row of a variable of positions.
std::function<void(int)> placing(const char* variable, const BF::Position& p) {
  return [=](int id) {
    for (std::size_t c = 0; c < 3; ++c) setting(variable, {0, c}, p[c])(id);
  };
}

TEST(SofaFile, SourcesAreSeenFromTheListener) {
  struct Case {
    std::vector<std::function<void(int id)>> edits;
    std::vector<BF::Position> stored;
    std::vector<BF::Position> seen;
  };
  const Case cases[] = {
      // looks along +y, so +x is on its right
      {{placing("ListenerPosition", {2, 3, 1}), placing("ListenerView", {0, 2, 0})},
       {{2, 5, 1}, {1, 3, 2}},
       {{2, 0, 0}, {0, 1, 1}}},
      {{attributing("SourcePosition", "Type", "spherical")},
       {{90, 0, 2}, {0, 30, 1}},
       {{0, 2, 0}, {std::sqrt(0.75), 0, 0.5}}},
      // The up direction has no Type of its own: (0, 90, 1) is up beside a spherical view.
      {{attributing("ListenerView", "Type", "spherical"), placing("ListenerView", {0, 0, 1}),
        placing("ListenerUp", {0, 90, 1})},
       {{0, 1, 0}, {0, 0, 1}},
       {{0, 1, 0}, {0, 0, 1}}},
      {{placing("ListenerView", {1e-170, 0, 0})}, {{1, 2, 3}}, {{1, 2, 3}}},
  };
  const TestFolder folder;
  const std::string path = folder / "db.sofa";
  for (const auto& [edits, stored, seen] : cases) {
    SofaTransferFunctions data = randomTransferFunctions(static_cast<int>(stored.size()), 1, 3);
    data.sourcePositions = stored;
    writeSofa(path, data);
    for (const auto& edit : edits) editing(edit)(path);
    const SofaFile file(path);
    for (std::size_t i = 0; i < 3 * stored.size(); ++i) {
      EXPECT_NEAR(file.sourcePositions()[i / 3][i % 3], seen[i / 3][i % 3], 1e-12) << i;
    }
  }
}

TEST(SofaFile, RemarksOneSourcePositionForAllMeasurements) {
  const TestFolder folder;
  const std::string path = folder / "one.sofa";
  SofaTransferFunctions data = randomTransferFunctions(3, 1, 4);
  data.sourcePositions.assign(3, {0.0, 2.0, 0.0});
  writeSofa(path, data);
  EXPECT_THAT(SofaFile(path).warnings(),
              testing::ElementsAre("all 3 measurements share one source position"));
}

}  // namespace
