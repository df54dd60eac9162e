#include "geometry/TransformFunctionDatabase.h"

#include <gmock/gmock.h>

#include <limits>

namespace {

using BF::MicLocation;
using BF::SourceLocation;
using BF::TransformFunctionDatabase;

SourceLocation source(double x, double y, double z) { return {x, y, z, 42, false}; }

TEST(TransformFunctionDatabase, FindsTheNearestPositionTheFirstOfEquals) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  TransformFunctionDatabase db;
  EXPECT_EQ(db.findNearestSourceIndex(source(1, 2, 3)), 0);
  db.sourceLocations = {source(1, 0, 0), source(-1, 0, 0), source(0, 0, 5)};
  EXPECT_EQ(db.findNearestSourceIndex(source(0, 0, 0)), 0);
  EXPECT_EQ(db.findNearestSourceIndex(source(-0.1, 0, 0)), 1);
  EXPECT_EQ(db.findNearestSourceIndex(source(0, 0, 9)), 2);
  EXPECT_EQ(db.findNearestSourceIndex(source(-1, nan, 0)), 0);
  EXPECT_EQ(db.findNearestSourceIndex(source(-1e150, 0, 0)),
            0);  // all equally far in double precision
  db.sourceLocations[0].y = nan;
  EXPECT_EQ(db.findNearestSourceIndex(source(-1, 0, 0)), 0);  // a NaN seed stays
}

TEST(TransformFunctionDatabase, AMicrophoneSearchesTheMicrophones) {
  TransformFunctionDatabase db;
  db.sourceLocations = {source(0, 0, 1.9)};
  EXPECT_EQ(db.findNearestSourceIndex(MicLocation(0, 0, 1.9)), 0);
  db.micLocations = {{0, 0, 1}, {0, 0, 2}};
  EXPECT_EQ(db.findNearestSourceIndex(MicLocation(0, 0, 1.9)), 1);
}

}  // namespace
