// Scene files: who is where and when, and what is wrong with a file.

#include "scene/Scene.h"

#include <cmath>
#include <numbers>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "dsp/DataError.h"
#include "gtest/gtest.h"
#include "tests/support/AudioTesting.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

Audio::Scene sceneOf(const std::string& text) { return Audio::Scene::parse(text, "scene.json"); }

/// A scene with one source, which has an id and these further members.
std::string sourceWith(const std::string& members) {
  return R"({"sources": [{"id": 0, )" + members + "}]}";
}

std::vector<int> ids(const std::vector<Audio::PlacedSource>& sources) {
  std::vector<int> list;
  for (const auto& source : sources) list.push_back(source.id);
  return list;
}

TEST(SceneTest, PlacesSources) {
  const std::string line =
      R"("track": [{"t": 1, "position": [0, 0, 0]}, {"t": 3, "position": [2, 4, -2]}])";
  // By the short way, across 180 degrees: from 170 to 210.
  const std::string turn =
      R"("track": [{"t": 0, "azimuth": 170}, {"t": 2, "azimuth": -150, "distance": 3}])";
  const std::string mixed = R"("track": [{"t": 0, "azimuth": 0}, {"t": 2, "position": [0, 1, 0]}])";
  const double degree = std::numbers::pi / 180;
  const struct {
    std::string members;
    double t;
    BF::Location position;
  } cases[] = {{R"("azimuth": 90, "distance": 2)", 100, {0, 2, 0}},
               {R"("azimuth": -180, "elevation": 30)", 0, {-std::sqrt(0.75), 0, 0.5}},
               {R"("position": [1, -2, 0.5])", 0, {1, -2, 0.5}},
               {line, 0, {0, 0, 0}},
               {line, 1.5, {0.5, 1, -0.5}},
               {line, 3, {2, 4, -2}},
               {line, 9, {2, 4, -2}},
               {turn, 1, {2 * std::cos(190 * degree), 2 * std::sin(190 * degree), 0}},
               {R"("distance": 2, "track": [{"t": 0, "azimuth": 0}])", 0, {2, 0, 0}},
               {mixed, 1, {0.5, 0.5, 0}}};
  for (const auto& [members, t, position] : cases) {
    SCOPED_TRACE(members + " at " + std::to_string(t));
    const BF::Location actual = sceneOf(sourceWith(members)).targetsAt(t).at(0).position;
    EXPECT_NEAR(actual.x, position.x, 1e-12);
    EXPECT_NEAR(actual.y, position.y, 1e-12);
    EXPECT_NEAR(actual.z, position.z, 1e-12);
  }
}

TEST(SceneTest, SourcesAppearAndVanish) {
  const Audio::Scene scene = sceneOf(R"({
      "sources": [{"id": 7, "azimuth": 0, "active": [[3.5, 4], [1, 1.5], [1.2, 2], [3, 3.5]]},
                  {"id": 3, "azimuth": 1}],
      "noise": [{"id": 9, "azimuth": 2, "active": [[0, 1.5]]}, {"id": 4, "azimuth": 3, "active": []}]})");
  EXPECT_THAT(ids(scene.targetsAt(0)), ElementsAre(3));
  EXPECT_THAT(ids(scene.targetsAt(1)), ElementsAre(7, 3));  // the begin belongs to it
  EXPECT_THAT(ids(scene.targetsAt(2)), ElementsAre(3));     // the end does not
  EXPECT_THAT(ids(scene.targetsAt(3.999)), ElementsAre(7, 3));
  EXPECT_THAT(ids(scene.noiseAt(0, false)), ElementsAre(9));
  EXPECT_THAT(ids(scene.noiseAt(0, true)), ElementsAre(9, 7));  // noise first, then who is inactive
  EXPECT_THAT(ids(scene.noiseAt(2.5, true)), ElementsAre(7));
  std::vector<std::pair<double, std::size_t>> crowds;
  for (const Audio::SceneCrowd& crowd : scene.crowds()) {
    crowds.emplace_back(crowd.time, crowd.active);
  }
  using testing::Pair;
  EXPECT_THAT(crowds, ElementsAre(Pair(0, 2), Pair(1, 3), Pair(1.5, 2), Pair(2, 1), Pair(3, 2),
                                  Pair(4, 1)));
}

TEST(SceneTest, ReadsTheExampleOfEveryKey) {
  const Audio::Scene scene = Audio::Scene::read(ZELK_EXAMPLES "/scene.json");
  EXPECT_THAT(ids(scene.targetsAt(0)), ElementsAre(0, 2));
  EXPECT_THAT(ids(scene.targetsAt(9)), ElementsAre(0, 1, 2));
  EXPECT_THAT(ids(scene.noiseAt(0, false)), ElementsAre(9));
}

TEST(SceneTest, ATablesSourceStaysWhereItsRowSaysUntilTheNextOne) {
  const auto scene = Audio::Scene::parseCsv("1,2,3,90\n1,3,4,180,0,2\n1,0,1,0\n", "scene.csv");
  const std::pair<double, double> cases[] = {{0, 1}, {0.999, 1}, {2, 0}, {2.999, 0}, {3, -2}};
  for (const auto& [t, x] : cases) {
    EXPECT_NEAR(scene.targetsAt(t).at(0).position.x, x, 1e-12) << t;
  }
  EXPECT_TRUE(scene.targetsAt(1.5).empty());
}

TEST(SceneTest, BadScenesAreRefusedWithTheReason) {
  const std::string deep = "{\"sources\": " + std::string(100000, '[');
  const std::string longText = "\"azimuth\": \"" + std::string(1000, 'x') + "\"";
  const std::string twice =
      R"({"sources": [{"id": 1, "azimuth": 1}], "noise": [{"id": 1, "azimuth": 2}]})";
  std::ostringstream crowd;
  for (int i = 0; i < 257; ++i) crowd << R"({"azimuth": 0, "id": )" << i << "},";
  const std::pair<std::string, std::string> cases[] = {
      {"{\"sources\": [" + crowd.str() + R"({"azimuth": 0, "id": 257}]})",
       "258 sources are active at 0 s, expected 256 at most"},
      {sourceWith(R"("azimuth": 1, "azimuth": 2)"),
       "/sources/0: found the key \"azimuth\" twice, expected it once"},
      {sourceWith(R"("track": [{"t": 0, "azimuth": 0}, {"t": 1, "azimuth": 0, "\u0074": 2}])"),
       "/sources/0/track/1: found the key \"t\" twice"},
      {R"({"sources": [], "sources": []})", "/: found the key \"sources\" twice"},
      {sourceWith(R"("azimuth": 1e308)"),
       "/sources/0/azimuth: found 1e+308, expected degrees, within ±1e6"},
      {sourceWith(R"("azimuth": 0, "distance": 1.1e6)"),
       "/sources/0/distance: found 1100000.0, expected a distance above 0 in metres, up to 1e6"},
      {sourceWith(R"("position": [0, -1e7, 0])"),
       "/sources/0/position/1: found -10000000.0, expected a coordinate in metres, within ±1e6"},
      {sourceWith(R"("track": [{"t": 1e10, "azimuth": 0}])"),
       "/sources/0/track/0/t: found 10000000000.0, expected a time in seconds, within ±1e9"},
      {sourceWith(R"("azimuth": 0, "active": [[0, 1e300]])"),
       "/sources/0/active/0/1: found 1e+300, expected a time in seconds, within ±1e9"},
      {"", "is no valid JSON: "},
      {"{\"sources\": [}", "is no valid JSON: parse error at line 1, column 14"},
      {sourceWith(R"("azimuth": 1e999)"), "is no valid JSON: "},
      {deep, "is nested deeper than 8 levels"},
      {"[1]", "/: found [1], expected an object with the keys sources, noise"},
      {"{}", "/: found no key \"sources\", expected one"},
      {R"({"sources": [], "nose": []})",
       R"(/: found the unknown key "nose", expected only sources, noise)"},
      {R"({"\n\u001b[2J": 1})", R"(/: found the unknown key "\n\u001b[2J", expected)"},
      {R"({"sources": {}})", "/sources: found {}, expected a list of sources"},
      {sourceWith(R"("azimut": 1)"),
       R"(/sources/0: found the unknown key "azimut", expected only id, azimuth, elevation, )"},
      {R"({"sources": [{"azimuth": 1}]})", R"(/sources/0: found no key "id", expected one)"},
      {R"({"sources": [{"id": 1.5, "azimuth": 1}]})",
       "/sources/0/id: found 1.5, expected a whole number from 0 to 2147483647"},
      {R"({"sources": [{"id": -1, "azimuth": 1}]})", "/sources/0/id: found -1"},
      {R"({"sources": [{"id": 2147483648, "azimuth": 1}]})", "/sources/0/id: found 2147483648"},
      {twice, "/noise/0/id: found 1, expected an id that no other source has (/sources/0/id has "},
      {R"({"sources": [{"id": 0}]})", R"(/sources/0: found no position, expected "azimuth")"},
      {sourceWith(R"("azimuth": 1, "position": [1, 2, 3])"),
       R"(/sources/0: found both a direction and "position", expected )"},
      {sourceWith(R"("distance": 1)"), R"(/sources/0: found no key "azimuth", expected one)"},
      {sourceWith(R"("azimuth": "left")"), R"(/sources/0/azimuth: found "left", expected degrees)"},
      {sourceWith(R"("azimuth": 0, "elevation": 91)"),
       "/sources/0/elevation: found 91, expected degrees from -90 to 90"},
      {sourceWith(R"("azimuth": 0, "distance": 0)"),
       "/sources/0/distance: found 0, expected a distance above 0 in metres"},
      {sourceWith(R"("position": [1, 2])"),
       "/sources/0/position: found [1,2], expected [x, y, z] in metres"},
      {sourceWith(R"("position": [1, null, 3])"),
       "/sources/0/position/1: found null, expected a coordinate in metres"},
      {sourceWith(R"("track": [])"), "/sources/0/track: found [], expected a list of one point"},
      {sourceWith(R"("azimuth": 0, "track": [])"),
       R"(/sources/0: found both "track" and a position beside it, expected one of them)"},
      {sourceWith(R"("track": [{"azimuth": 0}])"), R"(/sources/0/track/0: found no key "t")"},
      {sourceWith(R"("track": [{"t": 1, "azimuth": 0}, {"t": 1, "azimuth": 5}])"),
       "/sources/0/track/1/t: found 1, expected a time after the previous point's 1"},
      {sourceWith(R"("azimuth": 0, "active": [1, 2])"),
       "/sources/0/active/0: found 1, expected [begin, end] in seconds with begin < end"},
      {sourceWith(R"("azimuth": 0, "active": [[0, 1], [3, 2]])"),
       "/sources/0/active/1: found [3,2], expected [begin, end]"},
      {sourceWith(longText), "/sources/0/azimuth: found \"" + std::string(59, 'x') + "…, expected"},
  };
  for (const auto& [text, message] : cases) {
    EXPECT_THAT(messageOf<DataError>([text = text] { sceneOf(text); }),
                testing::StartsWith("scene.json: " + message))
        << text.substr(0, 100);
  }
  // What is quoted of the file cannot control a terminal.
  EXPECT_THAT(messageOf<DataError>([] { sceneOf("{\"\x7F\xC3 "); }),
              HasSubstr("last read: '\"?? '"));
  for (const auto& [path, reason] :
       {std::pair{"/no/scene.json", "cannot be read: No such file or directory"},
        std::pair{"/usr", "cannot be read: Is a directory"},
        std::pair{"/dev/zero", "has more than 67108864 bytes, expected at most that"}}) {
    EXPECT_EQ(messageOf<DataError>([path = path] { Audio::Scene::read(path); }),
              std::string(path) + ": " + reason);
  }
}

TEST(TimeRangesTest, ReadsRangesAndRefusesOthers) {
  const std::vector<Audio::TimeRange> ranges = Audio::parseTimeRanges("0-1.5, 4-5.25");
  ASSERT_EQ(ranges.size(), 2U);
  EXPECT_EQ(ranges[0].end, 1.5);
  EXPECT_EQ(ranges[1].begin, 4.0);
  for (const char* text : {"", "1", "2-1", "1-1", "a-2", "-1-2", "0-inf", "0-nan"}) {
    EXPECT_THAT(messageOf<DataError>([&] { Audio::parseTimeRanges(text); }),
                HasSubstr("expected seconds begin-end"))
        << text;
  }
}

}  // namespace
