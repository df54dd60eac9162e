#include "cli/pattern/PatternPicture.h"

#include <cmath>
#include <pugixml.hpp>
#include <sstream>

#include "gmock/gmock.h"

namespace {

using testing::ElementsAre;

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
  const std::vector<Point>& p = curves[0];
  ASSERT_EQ(p.size(), 4U);
  const Point centre = p[0];
  EXPECT_NEAR(centre.x, 200.0, 0.01);
  EXPECT_NEAR(p[1].x, centre.x, 0.01);
  EXPECT_NEAR(centre.y - p[1].y, 0.75 * 154.0, 0.01);
  EXPECT_NEAR(centre.x - p[2].x, 154.0, 0.01);
  EXPECT_NEAR(p[2].y, centre.y, 0.01);
  EXPECT_NEAR(p[3].y - centre.y, 0.5 * 154.0, 0.01);
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

}  // namespace
