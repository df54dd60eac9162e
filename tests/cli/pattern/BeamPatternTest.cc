#include "cli/pattern/BeamPattern.h"

#include <cmath>
#include <numbers>

#include "cli/pattern/SceneMoment.h"
#include "cli/pattern/SeparationEngine.h"
#include "cli/tfdb/ArrayGeometry.h"
#include "fileio/SofaWriter.h"
#include "gmock/gmock.h"
#include "tests/support/Databases.h"
#include "tests/toolbox/AudioTesting.h"

namespace {

using std::numbers::pi;
using testing::Each;
using testing::Lt;

class MethodGains : public testing::TestWithParam<const char*> {};

// Every method but ML, which takes transfer functions of norm 1, passes its own source unchanged;
// those that know the other sources' positions null them. With N < M sources W · A = I is exact up
// to the decompositions' 1.5e-7, times the condition number.
TEST_P(MethodGains, AreOneTowardsTheSourceAndNoneTowardsTheOthers) {
  const std::string method = GetParam();
  support::Generator random(5);
  for (int round = 0; round < 20; ++round) {
    const int M = random.integer(3, 6);
    const int N = random.integer(2, M - 1);
    const auto database = support::randomDatabase(random, M, 9, 4);
    const auto scene = support::distinctSources(random, N, 9);
    const auto engine = engineOf(method, database, 16000);
    engine->updateSources(support::locationsOf(scene, database));
    for (int row = 0; row < N; ++row) {
      for (int other = 0; other < N; ++other) {
        const int position = scene[other].position;
        const std::vector<double> gains = powerGains(*engine, row, position);
        ASSERT_EQ(gains.size(), 4U);
        if (row != other) {
          if (method == "NULL" || method == "ILSE") EXPECT_THAT(gains, Each(Lt(1e-9)));
          continue;
        }
        for (std::size_t k = 0; k < gains.size(); ++k) {
          const double norm = database.transferFunctions[k].getColumn(position).norm().real();
          EXPECT_NEAR(gains[k], method == "ML" ? norm : 1.0, 2e-5) << k;
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, MethodGains,
                         testing::Values("DS", "WDS", "NULL", "ILSE", "LCMV", "GJ", "GICA", "ML"));

// Delay-and-sum of M microphones with spacing s, steered to the front, answers a far source at
// azimuth φ with |sin(Mψ/2) / (M sin(ψ/2))|, ψ = 2πf s sin φ / c.
TEST(BeamPattern, OfDelayAndSumIsTheArrayFactor) {
  constexpr int M = 5;
  constexpr double SPACING = 0.04;
  constexpr int RATE = 16000;
  constexpr int LENGTH = 64;
  constexpr double FAR = 500.0;  // metres: amplitudes and angles differ by 1e-4 over the array
  const TestFolder folder;
  const std::string path = folder / "line.sofa";
  const Positions grid = gridPositions({10.0, {0.0}, {FAR}});
  writeSofa(path, freeFieldResponses(linearArray(M, SPACING), grid, {RATE, LENGTH}));

  const auto engine = engineOf("DS", databaseOf(SofaFile(path)), RATE);
  engine->updateSources({{FAR, 0.0, 0.0, 0, true}});
  for (int position = 0; position < 36; ++position) {
    const std::vector<double> gains = powerGains(*engine, 0, position);
    for (int k = 1; k < LENGTH / 2; ++k) {
      const double half = pi * k * RATE / LENGTH * SPACING * std::sin(position * pi / 18.0) / 343.0;
      const double factor =
          std::abs(std::sin(half)) < 1e-9 ? 1.0 : std::sin(M * half) / (M * std::sin(half));
      EXPECT_NEAR(std::sqrt(gains[static_cast<std::size_t>(k)]), std::abs(factor), 2e-3)
          << "position " << position << ", bin " << k;
    }
  }
}

TEST(BeamPattern, MeanIsOfPowers) {
  EXPECT_NEAR(broadbandGain({1.0, 3.0}), 10.0 * std::log10(2.0), 1e-12);
  EXPECT_EQ(broadbandGain({0.0}), -INFINITY);
  EXPECT_EQ(broadbandGain({}), -INFINITY);
}

TEST(SceneMoment, IsTheFirstWithTheMostSources) {
  const auto scene = Audio::Scene::parse(
      R"({"sources": [{"id": 4, "azimuth": 0, "active": [[0, 3], [5, 6]]},
                      {"id": 2, "track": [{"t": 0, "azimuth": 0}, {"t": 4, "azimuth": 180}],
                       "active": [[2, 9]]}],
          "noise": [{"id": 1, "azimuth": 90, "active": [[2.5, 7]]}]})",
      "scene");
  EXPECT_EQ(fullestTime(scene), 2.5);
  const auto sources = sourcesAt(scene, 2.5);
  ASSERT_EQ(sources.size(), 3U);
  EXPECT_EQ(sources[0].id, 4);
  EXPECT_EQ(sources[1].id, 2);
  EXPECT_TRUE(sources[1].flag);
  EXPECT_NEAR(sources[1].x, std::cos(2.5 / 4.0 * pi), 1e-6);
  EXPECT_EQ(sources[2].id, 1);
  EXPECT_FALSE(sources[2].flag);
}

}  // namespace
