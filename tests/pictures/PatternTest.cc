#include <cmath>
#include <numbers>
#include <pugixml.hpp>
#include <sstream>

#include "dsp/DataError.h"
#include "gmock/gmock.h"
#include "pictures/DirectionSet.h"
#include "pictures/PatternMap.h"
#include "pictures/PatternPicture.h"
#include "pictures/PictureFile.h"
#include "scene/SceneMoment.h"
#include "tests/pictures/PictureTesting.h"
#include "tests/support/AudioTesting.h"
#include "tests/support/TestFolder.h"

namespace {

using std::numbers::pi;
using testing::ElementsAre;
using testing::Pair;

TEST(SceneMoment, IsTheFirstWithTheMostSources) {
  const auto scene = Audio::Scene::parse(
      R"({"sources": [{"id": 4, "azimuth": 0, "active": [[0, 3], [5, 6]]},
                      {"id": 2, "track": [{"t": 0, "azimuth": 0}, {"t": 4, "azimuth": 180}],
                       "active": [[2, 9]]}],
          "noise": [{"id": 1, "azimuth": 90, "active": [[2.5, 7]]}]})",
      "scene");
  EXPECT_EQ(fullestTime(scene), 2.5);
  const auto sources = sourcesAt(scene, 2.5);
  std::vector<std::pair<int, bool>> idsAndTargets;
  for (const auto& source : sources) idsAndTargets.emplace_back(source.id, source.flag);
  ASSERT_THAT(idsAndTargets, ElementsAre(Pair(4, true), Pair(2, true), Pair(1, false)));
  EXPECT_NEAR(sources[1].x, std::cos(2.5 / 4.0 * pi), 1e-6);
}

class DirectionSets : public testing::Test {
 protected:
  void add(double azimuth, double elevation, double distance) {
    const double a = azimuth * pi / 180.0;
    const double e = elevation * pi / 180.0;
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

TEST_F(DirectionSets, AreOfTheNearestElevationAndDistance) {
  addGrid(90.0, {-10.0, 0.0, 15.0}, 1.0);
  addGrid(90.0, {-10.0, 0.0, 15.0}, 2.0);
  const DirectionSet flat = DirectionSet::ring(database, 3.0, 1.4);
  EXPECT_THAT(flat.positions, ElementsAre(7, 4, 5, 6));  // −90, 0, 90, 180 degrees
  EXPECT_EQ(flat.text(), "4 directions at elevation 0°, 1 m");
  const DirectionSet high = DirectionSet::ring(database, 90.0, 1.6);
  EXPECT_THAT(high.positions, ElementsAre(23, 20, 21, 22));
  EXPECT_EQ(high.text(), "4 directions at elevation 15°, 2 m");
}

// A dense grid gives its one elevation, although others are near; scattered directions give a band.
TEST_F(DirectionSets, WidenOnlyWhereDirectionsAreScattered) {
  addGrid(10.0, {-2.0, 0.0, 2.0}, 1.0);
  add(-180.0, 0.0, 1.0);  // the grid has it as 180 degrees
  EXPECT_EQ(DirectionSet::ring(database, 0.0, 1.0).text(), "36 directions at elevation 0°, 1 m");

  database.sourceLocations.clear();
  for (int i = 0; i < 60; ++i) add(6.0 * i, i % 10 - 4.2, 1.0 + 0.01 * i);
  EXPECT_EQ(DirectionSet::ring(database, 0.0, 1.0).text(),
            "30 directions at elevation -2.2 … 1.8°, 1.02 … 1.56 m");
}

TEST_F(DirectionSets, RefuseWhatIsNoRing) {
  const auto message = [&](double elevation) {
    return messageOf<DataError>([&] { DirectionSet::ring(database, elevation, 1.0); });
  };
  EXPECT_EQ(message(0.0), "found no directions, expected 3 or more");
  addGrid(30.0, {0.0}, 1.0);
  add(0.0, 90.0, 1.0);
  EXPECT_EQ(message(80.0),
            "found 1 of 13 directions near elevation 90.0, which is the nearest to 80.0 degrees, "
            "expected 3 or more");
}

TEST_F(DirectionSets, CoverASphereOnce) {
  addGrid(90.0, {0.0, 20.0}, 1.0);
  addGrid(180.0, {0.0}, 2.0);
  EXPECT_THAT(DirectionSet::sphere(database, 1.2).positions, ElementsAre(3, 0, 1, 2, 7, 4, 5, 6));
  EXPECT_THAT(DirectionSet::sphere(database, 1.8).positions, ElementsAre(3, 8, 1, 9, 7, 4, 5, 6));
  database.sourceLocations.erase(database.sourceLocations.begin() + 4,
                                 database.sourceLocations.end());
  EXPECT_EQ(messageOf<DataError>([&] { DirectionSet::sphere(database, 1.0); }),
            "found directions at elevations from 0.0 to 0.0 degrees, expected 20 or more between "
            "them for --map");
}

/// The curves of a picture of one source and one curve, as lists of points.
std::vector<std::vector<Point>> curvesOf(const std::vector<double>& azimuths,
                                         const std::vector<double>& gains, const char* element) {
  PatternPicture picture;
  picture.azimuths = azimuths;
  picture.sources = {{1, {0.0, 0.0, 1.0}}};
  picture.panels = {{0, {gains}}};
  pugi::xml_document document;
  document.load_string(picture.drawn(400).svg().c_str());
  std::vector<std::vector<Point>> curves;
  for (const pugi::xml_node node : document.child("svg").children(element)) {
    std::istringstream list(node.attribute("points").value());
    curves.emplace_back();
    char comma = 0;
    for (Point p; list >> p.x >> comma >> p.y;) curves.back().push_back(p);
  }
  return curves;
}

// Seen from above with the front up: the left is at the left. 40 dB from the centre to the circle
// of 0 dB, in which a width of 400 pixels leaves a radius of 154.
TEST(PatternPicture, PutsDirectionsAndGainsWhereTheyBelong) {
  const auto curves = curvesOf({-90, 0, 90, 180}, {-INFINITY, -10.0, 0.0, -20.0}, "polygon");
  ASSERT_EQ(curves.size(), 1U);
  ASSERT_EQ(curves[0].size(), 4U);
  const Point centre = curves[0][0];
  EXPECT_NEAR(centre.x, 200.0, 0.01);
  const Point offsets[] = {{0, 0}, {0, -0.75 * 154}, {-154, 0}, {0, 0.5 * 154}};
  for (const std::size_t i : {1U, 2U, 3U}) {
    EXPECT_NEAR(curves[0][i].x - centre.x, offsets[i].x, 0.01) << i;
    EXPECT_NEAR(curves[0][i].y - centre.y, offsets[i].y, 0.01) << i;
  }
}

TEST(PatternPicture, LeavesOutDirectionsThatWereNotMeasured) {
  std::vector<double> azimuths;
  for (double azimuth = -150.0; azimuth <= 150.0; azimuth += 10.0) {
    if (std::abs(azimuth) > 40.0) azimuths.push_back(azimuth);
  }
  const std::vector<double> gains(azimuths.size(), 0.0);
  EXPECT_TRUE(curvesOf(azimuths, gains, "polygon").empty());
  std::vector<std::size_t> counts;
  for (const auto& curve : curvesOf(azimuths, gains, "polyline")) counts.push_back(curve.size());
  EXPECT_THAT(counts, ElementsAre(11, 11));  // 50 … 150 degrees on both sides
}

// Who looks to the front has the left at the left. What no direction is near is grey.
TEST(PatternMap, PutsDirectionsAndGainsWhereTheyBelong) {
  PatternMap map;
  map.sources = {{1, {90.0, 30.0, 1.0}}};
  std::vector<double> gains;
  for (double elevation = -30.0; elevation <= 90.0; elevation += 30.0) {
    for (double azimuth = -150.0; azimuth <= 180.0; azimuth += 30.0) {
      map.directions.push_back({azimuth, elevation, 1.0});
      gains.push_back(azimuth == 90.0 && elevation == 30.0 ? 0.0 : azimuth < 0 ? -20.0 : -INFINITY);
    }
  }
  map.panels = {{0, gains, {0.0}}};
  const TestFolder folder;
  writePicture(folder / "map.png", map.drawn(464), false);  // the map is 400 × 200 pixels
  const Image image = imageOf(folder / "map.png");
  const auto at = [&](double azimuth, double elevation) {
    return image.at(static_cast<int>(46.0 + 400.0 * (180.0 - azimuth) / 360.0),
                    static_cast<int>(84.0 + 200.0 * (90.0 - elevation) / 180.0));
  };
  EXPECT_EQ(at(80.0, 40.0), scaleColour(1.0));
  EXPECT_EQ(at(50.0, 30.0), scaleColour(0.0));
  EXPECT_EQ(at(80.0, 5.0), scaleColour(0.0));
  EXPECT_EQ(at(-90.0, 30.0), scaleColour(0.5));
  EXPECT_EQ(at(0.0, -80.0), PALE);
}

}  // namespace
