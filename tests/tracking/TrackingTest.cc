// What trackers say: streams of messages cut anyhow, broken, late or contradicting, recorded or
// while they come.

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cmath>
#include <future>
#include <random>
#include <thread>

#include "dsp/DataError.h"
#include "gtest/gtest.h"
#include "tests/support/AudioTesting.h"
#include "tracking/FollowedTracks.h"
#include "tracking/LiveTracks.h"
#include "tracking/RecordedTracks.h"

namespace {

using namespace Tracking;
using testing::HasSubstr;

std::string message(int stamp, const std::vector<std::string>& slots) {
  std::string text = R"({ "timeStamp": )" + std::to_string(stamp) + R"(, "src": [)";
  for (const std::string& slot : slots) text += (text.ends_with('[') ? "" : ", ") + slot;
  return text + "] }";
}

std::string slot(int id, const std::string& place = R"("x": 1, "y": 0, "z": 0)") {
  return R"({ "id": )" + std::to_string(id) + R"(, "tag": "dynamic", )" + place +
         R"(, "activity": 0.5 })";
}

/// The times in hops and the ids of the messages of a stream that comes in pieces of these sizes.
std::string messagesOf(TrackStream& stream, const std::string& text, std::size_t piece) {
  std::string found;
  for (std::size_t at = 0; at < text.size(); at += piece) {
    stream.add(text.data() + at, std::min(piece, text.size() - at));
    while (const auto message = stream.next()) {
      found += message->time ? std::to_string(std::lround(*message->time / 0.008)) + ":" : "-:";
      for (const auto& target : message->targets) found += std::to_string(target.id) + " ";
    }
  }
  return found;
}

TEST(TrackStream, FindsTheMessagesHoweverTheyAreCutAndWhateverStandsBetween) {
  const std::string one = message(1, {slot(7), slot(0)});
  const std::string two = message(2, {slot(7), slot(8)});
  const std::string zero = message(2, {slot(9, R"("x": 0, "y": 0, "z": 0)")});
  const auto withLength = [](const std::string& text, bool bigEndian) {
    std::string length;
    for (int i = 0; i < 4; ++i) {
      length += static_cast<char>(text.size() >> (8 * (bigEndian ? 3 - i : i)) & 255U);
    }
    return length + text;
  };
  std::string brace = message(1, {});  // whose length has a brace in it
  brace.insert(2, std::string(256 + '{' - brace.size(), ' '));
  const struct {
    std::string text;
    std::string found;
    std::size_t broken = 0;
    std::size_t late = 0;
    std::size_t contradictions = 0;
  } cases[] = {
      {one + two, "1:7 2:7 8 "},
      {one + "\r\n" + two + "\n", "1:7 2:7 8 "},
      {withLength(one, false) + withLength(two, false), "1:7 2:7 8 "},
      {withLength(one, true) + withLength(two, true), "1:7 2:7 8 "},
      {withLength(brace, false) + two, "1:2:7 8 ", 1},
      {withLength(brace, true) + two, "1:2:7 8 ", 1},
      {R"({"t": 0.016, "sources": [{"id": 3, "azimuth": 30}]}{"sources": []})", "2:3 -:"},
      {one + zero, "1:7 2:"},
      {two + one + two, "2:7 8 2:7 8 ", 0, 1},
      {message(1, {slot(4), slot(4, R"("x": 0, "y": 1, "z": 0)")}), "1:4 ", 0, 0, 1},
      // Cut where an object may follow: the next message seems to be in it, until another one
      // comes.
      {one.substr(0, one.find("1, ")) + two + message(3, {}), "2:7 8 3:", 1},
      {one.substr(0, one.find("y\"")) + two, "2:7 8 ", 1},  // in the midst of a string
      {one.substr(0, one.size() - 2) + two, "2:7 8 ", 1},
      {one + "{\"timeStamp\": 2, \"src\": [x]}" + two, "1:7 2:7 8 ", 1},
      {one + "{\"odd\": {\"id\": 1}}" + two, "1:7 2:7 8 ", 1},
      {message(2, {R"({"id": 1.5})"}) + message(-1, {}) + message(3, {slot(1)}), "3:1 ", 2},
      {std::string(100000, '{') + two, "2:7 8 ", 1},
      {"{\"" + std::string(100000, 'x') + two, "2:7 8 ", 1},
      {"]}\xff{" + two + "\0[", "2:7 8 ", 1}};
  for (const auto& c : cases) {
    for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, c.text.size()}) {
      SCOPED_TRACE(c.text.substr(0, 200) + " in pieces of " + std::to_string(piece));
      TrackStream stream({}, false, false);
      EXPECT_EQ(messagesOf(stream, c.text, piece), c.found);
      EXPECT_EQ(stream.counts().broken, c.broken) << stream.counts().text();
      EXPECT_EQ(stream.counts().late, c.late);
      EXPECT_EQ(stream.counts().contradictions, c.contradictions);
      EXPECT_EQ(stream.counts().text().empty(), c.broken + c.late + c.contradictions == 0);
    }
  }
}

TEST(TrackStream, LosesOnlyWhatWasSpoilt) {
  std::mt19937 random(1);
  for (int trial = 0; trial < 200; ++trial) {
    std::string spoilt = message(1, {slot(1), slot(2)});
    for (int change = 0; change < 3; ++change) {
      spoilt[random() % spoilt.size()] = static_cast<char>(random());
    }
    std::string text;
    for (int stamp = 10; stamp < 20; ++stamp) text += message(stamp, {slot(5)});
    TrackStream stream({}, true, true);
    // What looks like a long object swallows the next ones at worst, until it is too long.
    const std::string found = messagesOf(stream, spoilt + text + std::string(70000, ' '), 1000);
    EXPECT_THAT(found, testing::EndsWith("10:5 11:5 12:5 13:5 14:5 15:5 16:5 17:5 18:5 19:5 "))
        << spoilt;
  }
}

class Recorded : public testing::Test {
 protected:
  Audio::Scene recorded(const std::string& text, const TrackSettings& settings = {}) {
    folder.write("tracks.json", text);
    TrackInput input(folder / "tracks.json", [](const std::string&) {});
    return recordedTracks(input, settings, counts);
  }

  TestFolder folder;
  TrackCounts counts;
};

TEST_F(Recorded, SourcesAreWhereTheNewestMessageSaysAndForNoLongerThanItIsHeld) {
  // Seconds 1 and 1.25 in hops of 8 ms; then nothing until 10 s, but for one that is late.
  const auto scene = recorded(message(125, {slot(7)}) + message(100, {slot(1)}) +
                                  message(156, {slot(7, R"("x": 0, "y": 2, "z": 0)"), slot(8)}) +
                                  message(1250, {slot(8)}) + message(1250, {slot(9)}),
                              {.hold = 0.5, .distance = 3});
  EXPECT_EQ(counts.late, 1);
  const struct {
    double time;
    std::vector<int> ids;
    double y;  // of the first
  } cases[] = {{0.99, {}, 0},     {1.0, {7}, 0}, {1.2479, {7}, 0}, {1.248, {7, 8}, 3},
               {1.74, {7, 8}, 3}, {1.75, {}, 0}, {9.99, {}, 0},    {10.0, {9}, 0},
               {10.49, {9}, 0},   {10.51, {}, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.time);
    const auto placed = scene.targetsAt(c.time);
    ASSERT_EQ(placed.size(), c.ids.size());
    for (std::size_t i = 0; i < c.ids.size(); ++i) EXPECT_EQ(placed[i].id, c.ids[i]);
    EXPECT_EQ(placed.empty() ? 0.0 : placed[0].position.y, c.y);
  }
  const auto lines = recorded(
      R"({"t": 1, "sources": [{"id": 3, "azimuth": 90}]})"
      "\n"
      R"({"t": 100, "sources": [{"id": 3, "position": [2, 0, 0]}], "noise": [{"id": 4, "azimuth": 0}]})"
      "\n"
      R"({"t": 101, "sources": [{"id": 4, "azimuth": 0}]})");
  EXPECT_NEAR(lines.targetsAt(99.9).at(0).position.y, 1, 1e-12);
  EXPECT_EQ(lines.noiseAt(100.5, false).at(0).id, 4);
  EXPECT_TRUE(lines.targetsAt(1000).empty());
  EXPECT_EQ(counts.contradictions, 1);
}

TEST_F(Recorded, TellsWhatIsNoRecording) {
  const struct {
    std::string text;
    std::string reason;
  } cases[] = {
      {"", "found no message of a tracker, expected some"},
      {R"({"sources": []})", "found no message of a tracker: found no \"t\", expected the time"},
      {R"({"timeStamp": "x", "src": []})", R"("timeStamp": found "x", expected a number)"},
      {R"({"t": 0, "sources": [{"id": 1, "azimuth": 0, "active": []}]})",
       "source 1 has \"track\" or \"active\""},
      {"{\"sources\": [", "found no message of a tracker, expected some"}};
  for (const auto& c : cases) {
    EXPECT_THAT(messageOf<DataError>([&] { recorded(c.text); }),
                testing::AllOf(HasSubstr("tracks.json: "), HasSubstr(c.reason)));
  }
  for (const char* name : {"/none", "/usr", "tcp://", "tcp://nosuch.invalid:1", "tcp://:99999"}) {
    EXPECT_THAT(messageOf<DataError>([&] { TrackInput(name, [](const std::string&) {}); }),
                testing::StartsWith(std::string(name) + ": "));
  }
}

/// A tracker that connects to the port that was told last.
class Tracker {
 public:
  explicit Tracker(int port) : socket(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  Tracker(const Tracker&) = delete;
  Tracker& operator=(const Tracker&) = delete;
  ~Tracker() { close(socket); }

  void send(const std::string& text) const {
    EXPECT_EQ(write(socket, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

 private:
  int socket;
};

TEST(FollowedTracks, HoldWhoWasWhere) {
  Tracking::FollowedTracks followed;
  for (int f = 0; f < 500; ++f) {  // 2 s: 3 moves all the time, 4 comes for a while
    std::vector<BF::SourceLocation> listed = {{1.0, 0.01 * f, 0.0, 3, true}};
    if (f >= 100 && f < 200) listed.push_back({0.0, -1.0, 0.0, 4, false});
    if (f >= 300) listed.push_back({0.0, -1.0, 0.0, 4, true});  // no noise any longer: left out
    followed.add({f * 0.004, (f + 1) * 0.004}, listed);
  }
  const Audio::Scene scene = followed.scene("tracker");
  ASSERT_EQ(scene.sources().size(), 1);
  ASSERT_EQ(scene.noiseSources().size(), 1);
  const Audio::SceneSource& moving = scene.sources()[0];
  EXPECT_EQ(moving.active.size(), 1);
  EXPECT_NEAR(moving.active[0].end, 2.0, 1e-9);
  EXPECT_LE(moving.track.size(), 2 * 21);
  for (const double t : {0.0, 0.5, 1.3, 1.99}) {
    const double y = 0.01 * t / 0.004;
    EXPECT_LE(moving.positionAt(t).y, y + 1e-9);
    EXPECT_GE(moving.positionAt(t).y, y - 0.27);  // of the last tenth of a second
  }
  EXPECT_NEAR(scene.noiseSources()[0].active[0].begin, 0.4, 1e-9);
  EXPECT_NEAR(scene.noiseSources()[0].active[0].end, 0.8, 1e-9);
}

TEST(LiveTracks, FollowTrackersThatComeAndGo) {
  int port = 0;
  const auto listen = [&](const std::string& text) {
    if (text.find("waits") != std::string::npos) port = std::stoi(text.substr(text.rfind(':') + 1));
  };
  LiveTracks tracks(std::make_unique<TrackInput>("tcp://127.0.0.1:0", listen), {.hold = 0.2});
  /// Waits until one source is there, which has the id, or none (0).
  const auto waitFor = [&](int id) {
    const auto deadline = LiveTracks::Clock::now() + std::chrono::seconds(20);
    while (LiveTracks::Clock::now() < deadline) {
      const auto targets = tracks.at(LiveTracks::Clock::now()).targets;
      if (id == 0 ? targets.empty() : targets.size() == 1 && targets[0].id == id) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
  };
  {
    const Tracker tracker(port);
    tracker.send(message(1000000, {slot(7)}) + "{\"timeSt");
    EXPECT_TRUE(waitFor(7));
    EXPECT_TRUE(waitFor(0));  // is held no longer
  }
  const Tracker tracker(port);  // starts anew
  tracker.send(message(1, {slot(8)}));
  EXPECT_TRUE(waitFor(8));
  tracker.send(R"({"sources": [{"id": 9, "azimuth": 0}]})");
  EXPECT_TRUE(waitFor(9));
  std::this_thread::sleep_for(std::chrono::milliseconds(400));
  EXPECT_EQ(tracks.at(LiveTracks::Clock::now()).targets.size(), 1);  // a line lasts
  EXPECT_EQ(tracks.counts().messages, 3);
  EXPECT_EQ(tracks.counts().broken, 1);
  EXPECT_EQ(tracks.failure(), "");
}

}  // namespace
