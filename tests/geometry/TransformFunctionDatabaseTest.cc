#include "geometry/TransformFunctionDatabase.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/MatrixGenerators.h"

namespace {

using BF::MicLocation;
using BF::SourceLocation;
using BF::TransformFunctionDatabase;
using support::Generator;

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

SourceLocation source(double x, double y, double z) { return {x, y, z, 99, true}; }

TEST(TransformFunctionDatabase, FindsTheNearestPositionAndTheLowestIndexOfEquals) {
  // Whole coordinates in a small cube, so that exact ties are frequent. Squared distances order
  // them exactly, and square roots of different small whole numbers stay different.
  for (int seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    Generator random(seed);
    TransformFunctionDatabase database;
    const auto coordinate = [&] { return static_cast<double>(random.integer(-3, 3)); };
    for (int i = random.integer(1, 30); i > 0; --i) {
      database.sourceLocations.push_back({coordinate(), coordinate(), coordinate(), i, false});
    }
    for (int i = random.integer(1, 30); i > 0; --i) {
      database.micLocations.push_back({coordinate(), coordinate(), coordinate()});
    }
    const SourceLocation query = source(coordinate(), coordinate(), coordinate());
    const auto nearest = [&](const auto& list) {
      int best = 0;
      double least = std::numeric_limits<double>::max();
      for (std::size_t i = 0; i < list.size(); ++i) {
        const double squared = std::pow(list[i].x - query.x, 2) + std::pow(list[i].y - query.y, 2) +
                               std::pow(list[i].z - query.z, 2);
        if (squared < least) {
          least = squared;
          best = static_cast<int>(i);
        }
      }
      return best;
    };
    EXPECT_EQ(database.findNearestSourceIndex(query), nearest(database.sourceLocations));
    EXPECT_EQ(database.findNearestSourceIndex(MicLocation(query.x, query.y, query.z)),
              nearest(database.micLocations));
  }
}

TEST(TransformFunctionDatabase, ComparesDistancesAndNotTheirSquares) {
  // The square of the first distance is one rounding step larger; its root is 1 all the same.
  TransformFunctionDatabase database;
  database.sourceLocations = {source(1.0, 1.5e-8, 0.0), source(1.0, 0.0, 0.0)};
  ASSERT_GT(1.0 + 1.5e-8 * 1.5e-8, 1.0);
  EXPECT_EQ(database.findNearestSourceIndex(source(0.0, 0.0, 0.0)), 0);
}

TEST(TransformFunctionDatabase, AnswersWithTheFirstIndexWhenNothingCanBeCompared) {
  TransformFunctionDatabase database;
  EXPECT_EQ(database.findNearestSourceIndex(source(0.0, 0.0, 0.0)), 0);
  EXPECT_EQ(database.findNearestSourceIndex(MicLocation(0.0, 0.0, 0.0)), 0);

  database.sourceLocations = {source(1.0, 0.0, 0.0), source(-1.0, 0.0, 0.0)};
  EXPECT_EQ(database.findNearestSourceIndex(source(-1.0, 0.0, 0.0)), 1);
  EXPECT_EQ(database.findNearestSourceIndex(source(-1.0, NOT_A_NUMBER, 0.0)), 0);
  EXPECT_EQ(database.findNearestSourceIndex(MicLocation(-1.0, 0.0, 0.0)), 0) << "no microphones";

  // A first entry that cannot be compared is never replaced, a later one never chosen.
  database.sourceLocations = {source(NOT_A_NUMBER, 0.0, 0.0), source(-1.0, 0.0, 0.0)};
  EXPECT_EQ(database.findNearestSourceIndex(source(-1.0, 0.0, 0.0)), 0);
  database.sourceLocations = {source(1.0, 0.0, 0.0), source(NOT_A_NUMBER, 0.0, 0.0)};
  EXPECT_EQ(database.findNearestSourceIndex(source(0.0, 0.0, 0.0)), 0);
}

}  // namespace
