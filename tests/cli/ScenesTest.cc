// Who is where and when, in all forms that a command takes: scene files, options, trackers.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <numbers>
#include <thread>

#include "gmock/gmock.h"
#include "responses/KnownArrays.h"
#include "tests/cli/TalkersFixture.h"

namespace {

using testing::HasSubstr;

class Scenes : public Talkers {
 protected:
  Scenes() {
    // Times in 64ths of a second are exact, and no frame's centre.
    folder.write("times.json", R"({"sources": [
        {"id": 3, "azimuth": 45, "active": [[0, 1.203125]]},
        {"id": 7, "azimuth": 180, "active": [[0.203125, 0.609375], [0.796875, 1.40625]]}]})");
    folder.write("times.csv",
                 "id, start, end, azimuth, elevation, distance\r\n3, 0, 1.203125, 45\r\n"
                 "7, 0.796875, 1.40625, 180, 0, 1\r\n\r\n7, 0.203125, 0.609375, 180,,\r\n");
    folder.write("times.rttm",
                 ";; turns\n"
                 "SPEAKER mix 1 0 1.203125 <NA> <NA> ann <NA> <NA>\n"
                 "SPEAKER mix 1 0.203125 0.40625 <NA> <NA> bo <NA> <NA>\n"
                 "SPEAKER mix 1 0.796875 0.609375 <NA> <NA> bo <NA> <NA>\n"
                 "SPEAKER else 1 0 9 <NA> <NA> cy <NA> <NA>\n");
    folder.write("tracks.json", tracks());
  }

  /// times.json as a tracker would say it, 64 times a second.
  static std::string tracks() {
    const double half = std::numbers::sqrt2 / 2;
    const nlohmann::json empty = {{"id", 0}, {"x", 0}, {"y", 0}, {"z", 0}};
    const nlohmann::json first = {{"id", 3}, {"x", half}, {"y", half}, {"z", 0}};
    const nlohmann::json second = {{"id", 7}, {"x", -1}, {"y", 0}, {"z", 0}};
    std::string text;
    for (int hop = 0; hop < 96; ++hop) {
      const bool speaks = (hop >= 13 && hop < 39) || (hop >= 51 && hop < 90);
      const nlohmann::json slots = {hop < 77 ? first : empty, speaks ? second : empty};
      text += nlohmann::json{{"timeStamp", hop}, {"src", slots}}.dump(2);
    }
    return text;
  }

  const std::string fromTracks = "--tracks tracks.json --track-hop 250/16000 ";

  void separate(const std::string& scene, const std::string& output) const {
    const CommandRun separated =
        run("separate mix.wav --tf array.sofa --quiet -o " + output + " " + scene);
    EXPECT_EQ(separated.status, 0) << separated.errors;
  }

  void expectSameSources(const std::string& actual, const std::string& expected,
                         const std::vector<int>& ids) const {
    for (std::size_t i = 0; i < ids.size(); ++i) {
      const std::string name = "/source_" + std::to_string(i == 0 ? 3 : 7) + ".wav";
      EXPECT_TRUE(content(actual + "/source_" + std::to_string(ids[i]) + ".wav") ==
                  content(expected + name))
          << actual << name;
    }
  }
};

TEST_F(Scenes, OfEveryFormGiveTheSameFiles) {
  separate("--sources times.json", "json");
  separate("--sources times.csv", "csv");
  expectSameSources("csv", "json", {3, 7});
  separate("--sources times.rttm --source ann:45 --source bo:180", "names");
  expectSameSources("names", "json", {0, 1});
  separate(fromTracks, "tracks");
  expectSameSources("tracks", "json", {3, 7});
  folder.write("tracks.n",
               run("separate mix.wav --tf array.sofa -o run --print-network " + fromTracks).output);
  EXPECT_EQ(run("run tracks.n").status, 0);
  expectSameSources("run", "json", {3, 7});
  separate("--sources scene.json", "always");
  separate("--source 3:45 --source 7:180:0:1", "inline");
  expectSameSources("inline", "always", {3, 7});
  folder.write("inline.n",
               run("separate mix.wav --tf array.sofa -o node --source 3:45 --source 7:180 "
                   "--print-network")
                   .output);
  EXPECT_EQ(run("run inline.n").status, 0);
  expectSameSources("node", "always", {3, 7});
  EXPECT_EQ(run("pattern --tf array.sofa --source 3:45 --source 7:180 -o p.svg").status, 0);
}

TEST_F(Scenes, OfATrackerThatConnectsAreReadToItsEnd) {
  // Of this process alone: tests run side by side.
  const std::string address = "127.0.0.1:" + std::to_string(20000 + getpid() % 10000);
  RunningCommand command({"separate", "mix.wav", "--tf", "array.sofa", "-o", "out", "--tracks",
                          "tcp://" + address, "--track-hop", "0.015625", "--quiet"},
                         folder / "");
  folder.write("send.sh", "cat tracks.json - >/dev/tcp/${1/://} <<<'{\"src\": 1}'");
  const std::string send = "cd '" + (folder / "") + "' && bash send.sh " + address + " 2>/dev/null";
  for (int i = 0; i < 500 && std::system(send.c_str()) != 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  const CommandRun finished = command.wait();
  EXPECT_EQ(finished.status, 0);
  EXPECT_THAT(finished.errors,
              testing::AllOf(HasSubstr("waits for a tracker to connect to " + address + "\n"),
                             HasSubstr("a tracker has connected from 127.0.0.1:"),
                             HasSubstr("left out 1 pieces that are no messages (the first: "
                                       "\"timeStamp\": found none, expected a number)")));
  separate("--sources times.json", "json");
  expectSameSources("out", "json", {3, 7});
}

TEST_F(Scenes, ArrayPresetsAreCompleteAndSelectTheirChannels) {
  EXPECT_EQ(knownArrays().size(), 6);
  const CommandRun listed = run("arrays");
  for (const KnownArray& array : knownArrays()) {
    SCOPED_TRACE(array.name);
    EXPECT_THAT(listed.output, HasSubstr(array.name + " "));
    const CommandRun shown = run("arrays " + array.name + " -o array.svg --force");
    const auto lines = std::count(shown.output.begin(), shown.output.end(), '\n');
    EXPECT_EQ(static_cast<std::size_t>(lines), 1 + array.positions.size());
    EXPECT_THAT(content("array.svg"), HasSubstr(array.title));
    const std::size_t dash = array.channels.find('-');
    const int first = std::stoi(array.channels), last = std::stoi(array.channels.substr(dash + 1));
    EXPECT_EQ(static_cast<std::size_t>(last - first + 1), array.positions.size());
    EXPECT_LE(last, array.recorded);
    for (const auto& [x, y, z] : array.positions) EXPECT_LT(std::hypot(x, y, z), 0.06);
  }
  run("tfdb geometry usb.sofa --array respeaker-usb-4 --azimuth-step 90");
  std::vector<float> six = noise(6 * 2000, 5);
  std::vector<float> four;
  for (std::size_t n = 0; n < 2000; ++n) four.insert(four.end(), &six[6 * n + 1], &six[6 * n + 5]);
  writeSound(folder / "six.wav", RATE, 6, six);
  writeSound(folder / "four.wav", RATE, 4, four);
  const std::string rest = " --tf usb.sofa --source 1:90 -o ";
  EXPECT_EQ(run("separate six.wav --array respeaker-usb-4" + rest + "a").status, 0);
  EXPECT_EQ(run("separate four.wav" + rest + "b").status, 0);
  EXPECT_TRUE(content("a/source_1.wav") == content("b/source_1.wav"));
}

TEST_F(Scenes, ThatSayNothingUsefulAreRefused) {
  folder.write("few.csv", "1,0,1\n");
  folder.write("late.csv", "id,start,end,azimuth\n1,2,1,0\n");
  folder.write("id.csv", "x,0,1,0\n");
  folder.write("twice.csv", "1,0,2,0\n1,1,3,90\n");
  folder.write("far.csv", "1,0,2,0,0,-1\n");
  folder.write("who.rttm", "SPEAKER mix 1 0 1 <NA> <NA> ann <NA> <NA>\n");
  const std::string start = "separate mix.wav --tf array.sofa -o out ";
  expectRefused(
      2, {{start, "--sources is required, or --source ID:AZIMUTH for each source, or --tracks"},
          {start + "--tracks tracks.json --source 1:2",
           "--tracks and --sources or --source exclude each other"},
          {start + "--tracks tracks.json --track-hop 128/0",
           "--track-hop: \"128/0\", expected SAMPLES/RATE or seconds, above 0 and up to 10 s"},
          {start + "--source 1:0 --array none",
           "--array: \"none\", expected one of respeaker-4, respeaker-usb-4, respeaker-6, …"},
          {"separate - --tf array.sofa -o - --tracks tcp://127.0.0.1:9",
           "-o - has a channel for each source, whom a tracker that is followed does not tell "
           "beforehand; expected a folder"},
          {"separate - --tf array.sofa -o out --tracks -",
           "--tracks is \"-\", from which the recording comes already, expected another input"}});
  expectRefused(
      1,
      {{start + "--source 1:x",
        "--source: \"1:x\": found \"x\", expected an azimuth in degrees, within ±1e6"},
       {start + "--source :1", "--source: \":1\": found \":1\", expected ID:AZIMUTH…"},
       {start + "--source 1:0:99",
        "--source: \"1:0:99\": found \"99\", expected an elevation in …"},
       {start + "--source 1:2 --source 1:3",
        "--source: \"1:3\": found \"1\" twice, expected it once"},
       {start + "--source 1:2 --sources scene.json",
        "scene.json: has its own places, expected --source only beside an RTTM file"},
       {start + "--sources few.csv",
        "few.csv: line 1: found 3 fields, expected id, start, end, azimuth[, elevation[, "
        "distance]]"},
       {start + "--sources late.csv",
        "late.csv: line 2: found the times 2 to 1, expected an end after the start"},
       {start + "--sources id.csv",
        "id.csv: line 1: found \"x\", expected an id, a whole number from 0 to 2147483647"},
       {start + "--sources twice.csv",
        "twice.csv: line 2: found a time of source 1 that overlaps the one in line 1, expected it "
        "at one place at a time"},
       {start + "--sources far.csv",
        "far.csv: line 1: found \"-1\", expected a distance above 0 …"},
       {start + "--sources who.rttm",
        "who.rttm: RTTM says who speaks when but not where, expected --source NAME:AZIMUTH for "
        "each "
        "name"},
       {start + "--sources who.rttm --source bo:1",
        "who.rttm: line 1: found the speaker \"ann\", expected one of bo"},
       {start + "--tracks scene.json",
        "scene.json: found no message of a tracker: found no \"t\", expected the time of the line "
        "in seconds"},
       {start + "--tracks tcp://127.0.0.1",
        "tcp://127.0.0.1: found no port from 0 to 65535, expected tcp://HOST:PORT or "
        "tcp://:PORT"}});
}

}  // namespace
