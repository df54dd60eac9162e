// Scene files: who is where and when, and what is wrong with a file.

#include "toolbox/core/Scene.h"

#include <cmath>
#include <ostream>
#include <string>
#include <vector>

#include "AudioTesting.h"
#include "gtest/gtest.h"
#include "toolbox/core/AudioError.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr double PI = 3.141592653589793;

Audio::Scene sceneOf(const std::string& text) { return Audio::Scene::parse(text, "scene.json"); }

std::vector<int> ids(const std::vector<Audio::PlacedSource>& sources) {
  std::vector<int> list;
  for (const auto& source : sources) list.push_back(source.id);
  return list;
}

void expectPosition(const Audio::Position& actual, double x, double y, double z) {
  EXPECT_NEAR(actual.x, x, 1e-12);
  EXPECT_NEAR(actual.y, y, 1e-12);
  EXPECT_NEAR(actual.z, z, 1e-12);
}

TEST(SceneTest, PlacesSourcesByDirectionOrPosition) {
  const Audio::Scene scene = sceneOf(R"({"sources": [
      {"id": 0, "azimuth": 90, "distance": 2},
      {"id": 1, "azimuth": -180, "elevation": 30},
      {"id": 2, "position": [1, -2, 0.5]}]})");
  const auto placed = scene.targetsAt(100);
  ASSERT_EQ(placed.size(), 3U);
  expectPosition(placed[0].position, 0, 2, 0);
  expectPosition(placed[1].position, -std::sqrt(0.75), 0, 0.5);
  expectPosition(placed[2].position, 1, -2, 0.5);
}

TEST(SceneTest, ReadsTheExampleOfEveryKey) {
  const Audio::Scene scene = Audio::Scene::read(ZELK_EXAMPLES "/scene.json");
  EXPECT_THAT(ids(scene.targetsAt(0)), ElementsAre(0, 2));
  EXPECT_THAT(ids(scene.targetsAt(9)), ElementsAre(0, 1, 2));
  EXPECT_THAT(ids(scene.noiseAt(0, false)), ElementsAre(9));
  expectPosition(scene.targetsAt(9)[1].position, 1.2, -0.7, 0.1);
  expectPosition(scene.noiseAt(0, false)[0].position, -3, 0, 0);
  expectPosition(scene.targetsAt(1)[2].position, 1.5 * std::cos(40 * PI / 180),
                 -1.5 * std::sin(40 * PI / 180), 0);  // halfway between the directions
  expectPosition(scene.targetsAt(3.5)[2].position, std::cos(20 * PI / 180) + 0.5,
                 -std::sin(20 * PI / 180), 0);  // halfway along the line to the last point
  expectPosition(scene.targetsAt(20)[1].position, 1, 0, 0);
}

TEST(SceneTest, SourcesAppearAndVanish) {
  const Audio::Scene scene = sceneOf(R"({
      "sources": [{"id": 7, "azimuth": 0, "active": [[1, 2], [3, 4]]}, {"id": 3, "azimuth": 1}],
      "noise": [{"id": 9, "azimuth": 2, "active": [[0, 1.5]]}, {"id": 4, "azimuth": 3, "active": []}]})");
  EXPECT_THAT(ids(scene.targetsAt(0)), ElementsAre(3));
  EXPECT_THAT(ids(scene.targetsAt(1)), ElementsAre(7, 3));  // the begin belongs to it
  EXPECT_THAT(ids(scene.targetsAt(2)), ElementsAre(3));     // the end does not
  EXPECT_THAT(ids(scene.targetsAt(3.999)), ElementsAre(7, 3));
  EXPECT_THAT(ids(scene.noiseAt(0, false)), ElementsAre(9));
  EXPECT_THAT(ids(scene.noiseAt(0, true)), ElementsAre(9, 7));  // noise first, then who is inactive
  EXPECT_THAT(ids(scene.noiseAt(1.2, true)), ElementsAre(9));
  EXPECT_THAT(ids(scene.noiseAt(2.5, true)), ElementsAre(7));
}

TEST(SceneTest, SourcesMove) {
  const Audio::Scene scene = sceneOf(R"({"sources": [
      {"id": 0, "track": [{"t": 1, "position": [0, 0, 0]}, {"t": 3, "position": [2, 4, -2]}]},
      {"id": 1, "track": [{"t": 0, "azimuth": 170}, {"t": 2, "azimuth": -150, "distance": 3}]},
      {"id": 2, "track": [{"t": 0, "azimuth": 0}, {"t": 2, "position": [0, 1, 0]}]}]})");
  const auto at = [&](int source, double t) { return scene.sources()[source].positionAt(t); };
  expectPosition(at(0, 0), 0, 0, 0);
  expectPosition(at(0, 1.5), 0.5, 1, -0.5);
  expectPosition(at(0, 3), 2, 4, -2);
  expectPosition(at(0, 9), 2, 4, -2);
  // Between directions it turns, across 180 degrees here, by the short way: 170 to 210 degrees.
  const double middle = 190.0 / 180.0 * std::acos(-1.0);
  expectPosition(at(1, 1), 2 * std::cos(middle), 2 * std::sin(middle), 0);
  expectPosition(at(2, 1), 0.5, 0.5, 0);
}

struct BadScene {
  const char* name;
  std::string text;
  std::vector<std::string> parts;
};

void PrintTo(const BadScene& bad, std::ostream* out) { *out << bad.name; }

class BadSceneTest : public testing::TestWithParam<BadScene> {};

TEST_P(BadSceneTest, IsRefusedWithTheReason) {
  const std::string message = messageOf<Audio::AudioError>([] { sceneOf(GetParam().text); });
  EXPECT_THAT(message, testing::StartsWith("scene.json: "));
  for (const std::string& part : GetParam().parts) EXPECT_THAT(message, HasSubstr(part));
}

/// A scene with one source, which has an id and these further members.
std::string sourceWith(const std::string& members) {
  return R"({"sources": [{"id": 0, )" + members + "}]}";
}

INSTANTIATE_TEST_SUITE_P(
    Scenes, BadSceneTest,
    testing::Values(
        BadScene{"syntax", "{\"sources\": [}", {"is no valid JSON", "line 1, column 14"}},
        BadScene{"empty", "", {"is no valid JSON"}},
        BadScene{"huge number", sourceWith("\"azimuth\": 1e999"), {"is no valid JSON"}},
        BadScene{
            "not an object", "[1]", {"/: found [1], expected an object with the keys sources"}},
        BadScene{"no sources", "{}", {"/: found no key \"sources\", expected one"}},
        BadScene{"unknown key",
                 R"({"sources": [], "nose": []})",
                 {"/: found the unknown key \"nose\", expected only sources, noise"}},
        BadScene{"sources is no list",
                 R"({"sources": {}})",
                 {"/sources: found {}, expected a list of sources"}},
        BadScene{"unknown key of a source",
                 sourceWith(R"("azimut": 1)"),
                 {"/sources/0: found the unknown key \"azimut\", expected only id, azimuth"}},
        BadScene{"no id", R"({"sources": [{"azimuth": 1}]})", {"/sources/0: found no key \"id\""}},
        BadScene{"id is a fraction",
                 R"({"sources": [{"id": 1.5, "azimuth": 1}]})",
                 {"/sources/0/id: found 1.5, expected a whole number from 0"}},
        BadScene{"negative id", R"({"sources": [{"id": -1, "azimuth": 1}]})", {"/id: found -1"}},
        BadScene{"large id",
                 R"({"sources": [{"id": 2147483648, "azimuth": 1}]})",
                 {"/id: found 2147483648"}},
        BadScene{"id twice",
                 R"({"sources": [{"id": 1, "azimuth": 1}],
                                 "noise": [{"id": 1, "azimuth": 2}]})",
                 {"/noise/0/id: found 1", "no other source has (/sources/0/id has it)"}},
        BadScene{"no position",
                 R"({"sources": [{"id": 0}]})",
                 {"/sources/0: found no position, expected \"azimuth\""}},
        BadScene{"two positions",
                 sourceWith(R"("azimuth": 1, "position": [1, 2, 3])"),
                 {"/sources/0: found both a direction and \"position\""}},
        BadScene{"no azimuth", sourceWith(R"("distance": 1)"), {"found no key \"azimuth\""}},
        BadScene{"azimuth is text",
                 sourceWith(R"("azimuth": "left")"),
                 {"/sources/0/azimuth: found \"left\", expected degrees"}},
        BadScene{"elevation",
                 sourceWith(R"("azimuth": 0, "elevation": 91)"),
                 {"/elevation: found 91, expected degrees from -90 to 90"}},
        BadScene{"distance",
                 sourceWith(R"("azimuth": 0, "distance": 0)"),
                 {"/distance: found 0, expected a distance above 0"}},
        BadScene{"position",
                 sourceWith(R"("position": [1, 2])"),
                 {"/position: found [1,2], expected [x, y, z] in metres"}},
        BadScene{"coordinate",
                 sourceWith(R"("position": [1, null, 3])"),
                 {"/position/1: found null, expected a coordinate"}},
        BadScene{"empty track", sourceWith(R"("track": [])"), {"/track: found []"}},
        BadScene{"track and position",
                 sourceWith(R"("azimuth": 0, "track": [])"),
                 {"/sources/0: found both \"track\" and a position"}},
        BadScene{"times",
                 sourceWith(R"("track": [{"t": 1, "azimuth": 0}, {"t": 1, "azimuth": 5}])"),
                 {"/sources/0/track/1/t: found 1, expected a time after the previous point's 1"}},
        BadScene{"no time",
                 sourceWith(R"("track": [{"azimuth": 0}])"),
                 {"/sources/0/track/0: found no key \"t\""}},
        BadScene{"active",
                 sourceWith(R"("azimuth": 0, "active": [1, 2])"),
                 {"/active/0: found 1, expected [begin, end] in seconds with begin < end"}},
        BadScene{"active backwards",
                 sourceWith(R"("azimuth": 0, "active": [[0, 1], [3, 2]])"),
                 {"/active/1: found [3,2]"}},
        BadScene{"deep nesting",
                 "{\"sources\": " + std::string(100000, '['),
                 {"scene.json: is nested deeper than 8 levels"}},
        BadScene{"control characters in broken text",
                 "{\"\x7F\xC3 ",
                 {"is no valid JSON: ", "last read: '\"?? '"}},
        BadScene{"control characters in a key",
                 R"({"\n\u001b[2J": 1})",
                 {R"(/: found the unknown key "\n\u001b[2J", expected)"}},
        BadScene{"long value",
                 sourceWith("\"azimuth\": \"" + std::string(1000, 'x') + "\""),
                 {"xxx…, expected degrees"}}));

TEST(SceneTest, NamesAFileThatCannotBeRead) {
  EXPECT_EQ(messageOf<Audio::AudioError>([] { Audio::Scene::read("/no/scene.json"); }),
            "/no/scene.json: cannot be read: No such file or directory");
  EXPECT_EQ(messageOf<Audio::AudioError>([] { Audio::Scene::read("/usr"); }),
            "/usr: cannot be read: Is a directory");
}

}  // namespace
