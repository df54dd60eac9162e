#include "cli/pattern/DirectionRing.h"

#include <cmath>
#include <numbers>

#include "gmock/gmock.h"
#include "tests/toolbox/AudioTesting.h"

namespace {

using testing::ElementsAre;

class DirectionRings : public testing::Test {
 protected:
  void add(double azimuth, double elevation, double distance) {
    const double a = azimuth * std::numbers::pi / 180.0;
    const double e = elevation * std::numbers::pi / 180.0;
    const double flat = distance * std::cos(e);
    database.sourceLocations.emplace_back(flat * std::cos(a), flat * std::sin(a),
                                          distance * std::sin(e), 0, true);
  }

  /// Azimuths 0, step, … at each elevation, all of one distance.
  void addGrid(double step, const std::vector<double>& elevations, double distance) {
    for (const double elevation : elevations) {
      for (double azimuth = 0.0; azimuth < 360.0; azimuth += step) {
        add(azimuth, elevation, distance);
      }
    }
  }

  BF::TransformFunctionDatabase database;
};

TEST_F(DirectionRings, AreOfTheNearestElevationAndDistance) {
  addGrid(90.0, {-10.0, 0.0, 15.0}, 1.0);
  addGrid(90.0, {-10.0, 0.0, 15.0}, 2.0);
  const DirectionRing flat = DirectionRing::of(database, 3.0, 1.4);
  EXPECT_THAT(flat.positions, ElementsAre(7, 4, 5, 6));  // −90, 0, 90, 180 degrees
  EXPECT_EQ(flat.text(), "4 directions at elevation 0°, 1 m");
  const DirectionRing high = DirectionRing::of(database, 90.0, 1.6);
  EXPECT_THAT(high.positions, ElementsAre(23, 20, 21, 22));
  EXPECT_EQ(high.text(), "4 directions at elevation 15°, 2 m");
}

// A dense grid gives its one elevation, although others are near; scattered directions give a band.
TEST_F(DirectionRings, WidenOnlyWhereDirectionsAreScattered) {
  addGrid(10.0, {-2.0, 0.0, 2.0}, 1.0);
  EXPECT_EQ(DirectionRing::of(database, 0.0, 1.0).text(), "36 directions at elevation 0°, 1 m");

  database.sourceLocations.clear();
  for (int i = 0; i < 60; ++i) add(6.0 * i, i % 10 - 4.2, 1.0 + 0.01 * i);
  EXPECT_EQ(DirectionRing::of(database, 0.0, 1.0).text(),
            "30 directions at elevation -2.2 … 1.8°, 1.02 … 1.56 m");
}

TEST_F(DirectionRings, RefuseWhatIsNoRing) {
  const auto message = [&](double elevation) {
    return messageOf<RingError>([&] { DirectionRing::of(database, elevation, 1.0); });
  };
  EXPECT_EQ(message(0.0), "found no directions, expected 3 or more");
  addGrid(30.0, {0.0}, 1.0);
  add(0.0, 90.0, 1.0);
  EXPECT_EQ(message(80.0),
            "found 1 of 13 directions near elevation 90.0, which is the nearest to 80.0 degrees, "
            "expected 3 or more");
}

}  // namespace
