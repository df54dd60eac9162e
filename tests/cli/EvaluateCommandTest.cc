#include <nlohmann/json.hpp>
#include <random>

#include "gmock/gmock.h"
#include "tests/cli/CommandTest.h"

namespace {

using testing::HasSubstr;

class EvaluateCommand : public CommandTest {
 protected:
  EvaluateCommand() {
    std::mt19937 random(1);
    std::normal_distribution<float> gaussian(0.0F, 0.1F);
    for (const char* name : {"a.wav", "b.wav"}) {
      std::vector<float> samples(16000);
      for (float& sample : samples) sample = gaussian(random);
      writeSound(folder / name, 16000, 1, samples);
    }
  }

  nlohmann::json plan = nlohmann::json::parse(R"({
    "dry": ["a.wav", "b.wav"],
    "scenes": [{"sources": [{"id": 0, "azimuth": 0}, {"id": 7, "azimuth": 90}]}],
    "arrays": [{"name": "pair", "linear": [2, 0.1]}],
    "rooms": [{"name": "open air"}, {"name": "box", "size": [4, 3, 2.5], "t60": 0.2}],
    "noises": [{"name": "none"}, {"name": "20 dB", "sensor": 20}],
    "databases": [{"name": "right", "responses": "own", "reference": 1},
                  {"name": "free", "responses": "free field"},
                  {"name": "turned", "responses": "free field", "error": 10},
                  {"name": "half", "responses": "free field", "grid": 10}]})");
};

// What is known beforehand: exact responses separate without bound but for rounding, in a room long
// frames do, noise and positions 10 degrees wrong cost what they cost.
TEST_F(EvaluateCommand, GoesThroughAllCombinationsInOrder) {
  plan["methods"] = {"NULL", "WDS", "NULL+1", "MVDR", "MVDR --param FRAMES=1"};
  folder.write("plan.json", plan.dump());
  const CommandRun result = run("evaluate plan.json --json");
  ASSERT_EQ(result.status, 0) << result.errors;
  const auto rows = nlohmann::json::parse(result.output)["rows"];
  ASSERT_EQ(rows.size(), 2U * 2U * 4U * 5U);
  const auto worst = [&](const char* room, const char* noise, const char* database,
                         const char* method) {
    for (const auto& row : rows) {
      if (row["room"] != room || row["noise"] != noise) continue;
      if (row["database"] != database || row["method"] != method) continue;
      EXPECT_EQ(row["si_sir"]["all"].size(), 2U);
      EXPECT_LE(row["si_sir"]["worst"], row["si_sir"]["median"]);
      return row["si_sdr"]["worst"].get<double>();
    }
    ADD_FAILURE() << room << noise << database << method;
    return 0.0;
  };
  const double exact = worst("open air", "none", "free", "NULL");
  EXPECT_GT(exact, 20.0);
  EXPECT_LT(worst("open air", "none", "turned", "NULL"), exact - 5.0);
  EXPECT_LT(worst("open air", "none", "half", "NULL"), exact - 5.0);
  EXPECT_LT(worst("open air", "20 dB", "free", "NULL"), exact - 5.0);
  EXPECT_GT(worst("open air", "none", "free", "NULL"), worst("open air", "none", "free", "WDS"));
  EXPECT_GT(worst("box", "none", "right", "NULL"), worst("box", "none", "free", "NULL") + 3.0);
  EXPECT_GT(worst("box", "none", "right", "MVDR"),
            worst("box", "none", "right", "MVDR --param FRAMES=1") + 1.0);
  EXPECT_GT(worst("box", "none", "free", "NULL+1"), worst("box", "none", "free", "WDS"));

  const std::string table = run("evaluate plan.json --methods NULL -o table.txt").output;
  EXPECT_EQ(table, "");
  EXPECT_THAT(content("table.txt"), HasSubstr("\nopen air  pair   none   right     NULL "));
  EXPECT_THAT(content("table.txt"), HasSubstr("\nall       all    all    turned    NULL "));
}

// Options of separate behind a method's name do what they do there, and --by pools rows.
TEST_F(EvaluateCommand, RunsMethodsWithOptionsAndPoolsRows) {
  plan["methods"] = {"NULL+1", "NULL --refine 1",
                     "WDS",    "LCMV --param LCMV_LC_MYU=0",
                     "ML",     "ML --noise-from 0:0.2 --param REG_FACTOR=0.1"};
  plan["scenes"][0]["sources"][0]["active"] = {{0.3, 1.0}};
  plan["scenes"][0]["noise"] = nlohmann::json::array({plan["scenes"][0]["sources"][1]});
  plan["scenes"][0]["sources"].erase(1);
  folder.write("plan.json", plan.dump());
  const CommandRun result = run("evaluate plan.json --by noise,room --json");
  ASSERT_EQ(result.status, 0) << result.errors;
  const auto rows = nlohmann::json::parse(result.output)["rows"];
  ASSERT_EQ(rows.size(), 2U * 2U * 6U);
  std::map<std::string, nlohmann::json> scores;
  for (const auto& row : rows) {
    EXPECT_EQ(row["array"], "all");
    EXPECT_EQ(row["database"], "all");
    EXPECT_EQ(row["si_sdr"]["all"].size(), 4U);  // of the databases
    if (row["room"] == "box" && row["noise"] == "20 dB") scores[row["method"]] = row["si_sdr"];
  }
  EXPECT_EQ(scores.at("NULL+1"), scores.at("NULL --refine 1"));
  EXPECT_EQ(scores.at("WDS"), scores.at("LCMV --param LCMV_LC_MYU=0"));  // where LCMV starts
  EXPECT_NE(scores.at("ML"), scores.at("ML --noise-from 0:0.2 --param REG_FACTOR=0.1"));
}

TEST_F(EvaluateCommand, SaysWhatIsWrongWithThePlan) {
  const auto without = [this](const char* change) {
    nlohmann::json changed = plan;
    changed.merge_patch(nlohmann::json::parse(change));
    folder.write("plan.json", changed.dump());
  };
  const std::pair<const char*, const char*> cases[] = {
      {R"({"rooms": null})", "plan.json: /: found no key \"rooms\", expected one"},
      {R"({"arrays": []})", "plan.json: /arrays: found [], expected a list of one or more"},
      {R"({"arrays": [{"name": "x", "linear": [0, 0.1]}]})",
       "plan.json: /arrays/0/linear/0: found 0, expected a whole number from 1 to 1024"},
      {R"({"arrays": [{"name": "x"}]})",
       "plan.json: /arrays/0: found {\"name\":\"x\"}, expected one of circular, linear, "
       "microphones and responses beside the name"},
      {R"({"rooms": [{"name": "x", "t60": 0.3}]})",
       "plan.json: /rooms/0: found t60 or absorption without size, expected all of them or none"},
      {R"({"databases": [{"name": "x", "responses": "best"}]})",
       "plan.json: /databases/0/responses: found \"best\", expected \"free field\" or \"own\""},
      {R"({"dry": ["a.wav"]})",
       "plan.json: /scenes/0: found 2 sources, expected one target at least and no more sources "
       "than dry files, 1"},
      {R"({"scenes": [{"sources": [{"id": 0}]}]})",
       "plan.json: /scenes/0: /sources/0: found no position, expected"},
  };
  for (const auto& [change, message] : cases) {
    without(change);
    const CommandRun result = run("evaluate plan.json");
    EXPECT_EQ(result.status, 1) << change;
    EXPECT_THAT(result.errors, HasSubstr(message));
  }
  const std::pair<const char*, const char*> methods[] = {
      {"NULL+x", R"(method "NULL+x": --refine: Value x not in range 0 to 100)"},
      {"NIL", R"(method "NIL": --method is "NIL", expected one of DS, )"},
      {"GJ --param X=1", R"(method "GJ --param X=1": --param names "X", expected a parameter)"},
      {"NULL --noise-from 0:1", R"(: --noise-from serves ML, not NULL)"},
      {"NULL --length 512", R"(method "NULL --length 512": )"},
  };
  for (const auto& [method, message] : methods) {
    without(nlohmann::json{{"methods", {method}}}.dump().c_str());
    const CommandRun result = run("evaluate plan.json");
    EXPECT_EQ(result.status, 2) << method;
    EXPECT_THAT(result.errors, HasSubstr(message));
  }
}

}  // namespace
