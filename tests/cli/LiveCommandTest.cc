// Live sound through a real sound server that the test starts.

#include <fmt/format.h>

#include <chrono>
#include <csignal>
#include <regex>
#include <thread>

#include "tests/cli/JackServer.h"
#include "tests/cli/TalkersFixture.h"

namespace {

using testing::HasSubstr;

class LiveSound : public Talkers {
 protected:
  void SetUp() override {
    if (!JackServer::isInstalled()) GTEST_SKIP() << "there is no jackd (Debian: jackd2)";
  }

  std::string live(const JackServer& server, const std::string& more) const {
    return "live --server " + server.name() + files + more;
  }

  RunningCommand start(const JackServer& server, const std::string& more) const {
    return RunningCommand(wordsOf(live(server, more)), folder / "");
  }
};

constexpr const char* LATE = "separation was late ([0-9]+) times";

/// The number that a pattern's group has in a report.
std::size_t numberIn(const std::string& text, const std::string& pattern) {
  std::smatch match;
  if (!std::regex_search(text, match, std::regex(pattern))) return ~std::size_t{0};
  return std::stoul(match[1]);
}

constexpr int PERIOD = 256;
constexpr int MARGIN = 8;

struct Frames {
  const char* options;
  std::size_t latency;  // from port to port, in samples
};

void PrintTo(const Frames& frames, std::ostream* out) { *out << frames.options; }

class LiveFrames : public LiveSound, public testing::WithParamInterface<Frames> {};

INSTANTIATE_TEST_SUITE_P(Frames, LiveFrames,
                         testing::Values(Frames{"", 512 + MARGIN* PERIOD - 128},
                                         Frames{"--latency 8 ", 128 + MARGIN* PERIOD - 64}));

TEST_P(LiveFrames, AreWhatSeparateWritesAfterTheStatedLatency) {
  const auto [options, LATENCY] = GetParam();
  ASSERT_EQ(run("separate mix.wav --format FLOAT --quiet -o files" + files + options).status, 0);
  const JackServer server(PERIOD, 1);
  const std::vector<float> mix = sound("mix.wav").samples;
  CommandRun result;
  bool isEqual = false;
  // On a busy machine the server passes over clients that are not in time; then once more.
  for (int tries = 0; tries < 5 && !isEqual; ++tries) {
    RunningCommand command =
        start(server, std::string("--from none --slots 3 --margin 8 ") + options);
    JackPeer player(server, "player", MICROPHONES, true);
    JackPeer recorder(server, "recorder", 3, false);
    ASSERT_TRUE(player.connect("zelk-sss:mic_") && recorder.connect("zelk-sss:slot_"));
    player.play(mix);
    ASSERT_TRUE(player.isDone());
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    command.send(SIGINT);
    result = command.wait();
    isEqual = result.status == 0 && numberIn(result.output, LATE) == 0;
    for (const auto& [slot, name] :
         {std::pair(0, "files/source_3.wav"), {1, "files/source_7.wav"}}) {
      const std::vector<float> expected = sound(name).samples;
      const std::vector<float> heard = recorder.recordedSince(player, slot);
      isEqual = isEqual && heard.size() >= LATENCY + expected.size() &&
                std::equal(expected.begin(), expected.end(),
                           heard.begin() + static_cast<std::ptrdiff_t>(LATENCY));
    }
    for (const float x : recorder.recordedSince(player, 2)) ASSERT_EQ(x, 0.0F);
  }
  EXPECT_TRUE(isEqual) << result.output << result.errors;
  EXPECT_EQ(numberIn(result.output, "latency ([0-9]+) samples"), LATENCY);
  EXPECT_THAT(result.output, HasSubstr("slot_1 plays source 3\n"));
  EXPECT_THAT(result.output, HasSubstr("slot_2 plays source 7\n"));
}

TEST_F(LiveSound, TellsOfSourcesWithoutSlotOfXrunsAndOfTheServersEnd) {
  JackServer server(160, MICROPHONES);
  RunningCommand command = start(server, "--slots 1 --to system:playback");
  {
    const JackPeer listener(server, "listener", 1, false);
    ASSERT_TRUE(listener.connect("zelk-sss:slot_"));
  }
  server.send(SIGSTOP);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  server.send(SIGCONT);
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  server.kill();
  const CommandRun result = command.wait();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr("mic_3 hears system:capture_3\n"));
  EXPECT_GT(numberIn(result.output, "the server ([0-9]+) times"), 0) << result.output;
  EXPECT_THAT(result.errors,
              HasSubstr("source 7: no slot is free from 0.00 s on, expected --slots 2"));
  EXPECT_THAT(result.errors, HasSubstr("zelk-sss: the JACK server was late "));
  EXPECT_THAT(result.errors, HasSubstr("zelk-sss: the JACK server ended the connection ("));
}

TEST_F(LiveSound, RefusesWhatDoesNotFit) {
  const JackServer server(160, 4);
  run("tfdb geometry other.sofa --circular 4 0.05 --rate 8000 --length 64");
  const std::string live8 = "live --server " + server.name() + " --sources scene.json ";
  expectRefused(
      1, {{"live --server zelk-none" + files, "no JACK server \"zelk-none\" answers, expected …"},
          {live(server, ""),
           "the JACK server: gives 4 channels, expected 3, a channel for each microphone of "
           "array.sofa (--channels selects)"},
          {live(server, "--from speech"),
           "--from: the JACK server has no port that matches \"speech\", expected …"},
          {live(server, "--to speech"),
           "--to: the JACK server has no port that matches \"speech\", expected …"},
          {live(server, "--channels 2,5,6"), "--channels is \"2,5,6\": \"5\" does not fit …"},
          {live8 + "--tf other.sofa",
           "the JACK server: runs at 16000 Hz, expected 8000 Hz, for which other.sofa was made"},
          {live8 + "--method MSNR --from none",
           "--channels is missing: nothing else says how many microphones there are"}});
}

}  // namespace
