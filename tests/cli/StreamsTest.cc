// `separate` from pipes and into them, and of several recordings at once.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "gmock/gmock.h"
#include "tests/cli/TalkersFixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Streams : public Talkers {
 protected:
  Streams() {
    const Sound mix = sound("mix.wav");
    std::string bytes(mix.samples.size() * sizeof(float), '\0');
    std::memcpy(bytes.data(), mix.samples.data(), bytes.size());
    folder.write("mix.raw", bytes);
  }

  /// With a file as standard input.
  CommandRun runOn(const std::string& input, const std::string& arguments) const {
    return runCommand(wordsOf(arguments), folder / "", folder / input);
  }

  static std::vector<float> numbersIn(const std::string& bytes) {
    std::vector<float> numbers(bytes.size() / sizeof(float));
    std::memcpy(numbers.data(), bytes.data(), numbers.size() * sizeof(float));
    return numbers;
  }

  const std::string raw = " --raw FLOAT_LE,3,16000 ";
};

// Wherever the recording and the scene come from, and wherever the signals go, they are the same.
TEST_F(Streams, GiveWhatFilesGive) {
  ASSERT_EQ(run("separate mix.wav -o files --format FLOAT" + files).status, 0);
  const std::vector<float> first = sound("files/source_3.wav").samples;
  const std::vector<float> second = sound("files/source_7.wav").samples;
  const std::pair<std::string, std::string> inputs[] = {
      {"mix.wav", "- --sources scene.json"},
      {"mix.wav", "/dev/stdin --sources scene.json"},
      {"mix.raw", "- --sources scene.json" + raw},
      {"mix.wav", "mix.raw --sources scene.json" + raw},
      {"scene.json", "mix.wav --sources -"}};
  for (const auto& [input, arguments] : inputs) {
    SCOPED_TRACE(arguments);
    const CommandRun result =
        runOn(input, "separate --tf array.sofa --format FLOAT --force -o out " + arguments);
    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    EXPECT_TRUE(sound("out/source_3.wav").samples == first);
    EXPECT_TRUE(sound("out/source_7.wav").samples == second);
  }

  for (const std::string input : {"mix.wav", "mix.raw"}) {  // the same in a network
    const CommandRun printed =
        runOn(input, "separate - -o network --force --format FLOAT --print-network" + files +
                         (input == "mix.raw" ? raw : ""));
    ASSERT_EQ(printed.status, 0) << printed.errors;
    folder.write("network.n", printed.output);
    const CommandRun result = runOn(input, "run network.n");
    EXPECT_EQ(result.output, "<Bool true >\n") << result.errors;
    EXPECT_TRUE(sound("network/source_7.wav").samples == second);
  }

  std::vector<float> both;
  for (std::size_t n = 0; n < first.size(); ++n) both.insert(both.end(), {first[n], second[n]});
  const CommandRun plain = runOn("mix.wav", "separate - -o - --raw-output FLOAT_LE" + files);
  ASSERT_EQ(plain.status, 0) << plain.errors;
  EXPECT_TRUE(numbersIn(plain.output) == both);
  EXPECT_THAT(plain.errors, HasSubstr("zelk-sss: channel 1: source 3, channel 2: source 7\n"));
  EXPECT_THAT(plain.errors, HasSubstr("latency 512 samples (32.0 ms)"));
  for (const std::string format : {"PCM_16", "PCM_24", "FLOAT"}) {
    SCOPED_TRACE(format);
    const CommandRun wav = run("separate mix.wav -o - --quiet --format " + format + files);
    EXPECT_EQ(wav.errors, "");
    folder.write("stream.wav", wav.output);
    ASSERT_EQ(run("separate mix.wav --force -o files --format " + format + files).status, 0);
    const Sound stream = sound("stream.wav");
    EXPECT_EQ(stream.channels, 2);
    EXPECT_EQ(stream.samplingRate, RATE);
    const Sound file = sound("files/source_7.wav");
    for (std::size_t n = 0; n < file.samples.size(); ++n) {
      ASSERT_EQ(stream.samples[2 * n + 1], file.samples[n]) << n;
    }
  }
}

/// Processor time that a process has used, in ticks of 10 ms.
int ticksOf(int process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string word;
  for (int i = 0; i < 14; ++i) file >> word;
  int user = std::stoi(word);
  int system = 0;
  file >> system;
  return user + system;
}

struct Flow {
  const char* options;
  std::size_t latency;  // samples
  std::size_t advance;
};

void PrintTo(const Flow& flow, std::ostream* out) { *out << flow.options; }

class FlowingStreams : public Streams, public testing::WithParamInterface<Flow> {};

INSTANTIATE_TEST_SUITE_P(Frames, FlowingStreams,
                         testing::Values(Flow{"--advance 128 ", 512, 128},
                                         Flow{"--latency 8 ", 128, 64}));

// What goes in comes out within the latency, a pause costs no processor time, and a signal ends it.
TEST_P(FlowingStreams, FlowWithoutDelay) {
  const auto [options, LATENCY, ADVANCE] = GetParam();
  const std::string bytes = content("mix.raw");
  ASSERT_EQ(mkfifo((folder / "in").c_str(), 0600), 0);
  const int in = open((folder / "in").c_str(), O_RDWR);
  RunningCommand command(
      wordsOf("separate in -o - --quiet --raw-output FLOAT_LE" + raw + options + files),
      folder / "");
  const std::size_t block = ADVANCE * MICROPHONES * sizeof(float);
  for (std::size_t n = 1; n <= 20; ++n) {
    ASSERT_EQ(write(in, bytes.data() + (n - 1) * block, block), static_cast<ssize_t>(block));
    const std::size_t taken = n * ADVANCE + ADVANCE;
    const std::size_t due = taken > LATENCY ? (taken - LATENCY) * 2 * sizeof(float) : 0;
    for (int wait = 0; wait < 1000 && command.outputSize() < due; ++wait) usleep(10'000);
    ASSERT_EQ(command.outputSize(), due);
  }
  const int before = ticksOf(command.id());
  usleep(500'000);
  EXPECT_LT(ticksOf(command.id()) - before, 10);
  command.send(SIGTERM);
  const CommandRun result = command.wait();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors, "zelk-sss: stopped by signal 15 after frame " +
                               std::to_string(18 + LATENCY / ADVANCE) + "\n");
  EXPECT_EQ(result.output.size(), 20 * ADVANCE * 2 * sizeof(float));
  close(in);
}

// A tracker that is followed: who was where stands beside the files.
TEST_F(Streams, OfATrackerAreWrittenDown) {
  for (const char* name : {"in", "tracks"}) ASSERT_EQ(mkfifo((folder / name).c_str(), 0600), 0);
  const int in = open((folder / "in").c_str(), O_RDWR | O_CLOEXEC);
  const int tracks = open((folder / "tracks").c_str(), O_RDWR | O_CLOEXEC);
  const std::string line =
      R"({"sources": [{"id": 5, "azimuth": 45}], "noise": [{"id": 6, "azimuth": -80}]})";
  ASSERT_EQ(write(tracks, line.data(), line.size()), static_cast<ssize_t>(line.size()));
  RunningCommand command(
      wordsOf("separate in -o out --quiet --tf array.sofa --tracks tracks" + raw), folder / "");
  const std::string bytes = content("mix.raw");
  const std::size_t block = bytes.size() / 15 / 12 * 12;
  for (std::size_t at = 0; at < bytes.size(); at += block) {
    const std::size_t count = std::min(block, bytes.size() - at);
    ASSERT_EQ(write(in, bytes.data() + at, count), static_cast<ssize_t>(count));
    usleep(60'000);
  }
  close(in);
  const CommandRun result = command.wait();
  close(tracks);
  ASSERT_EQ(result.status, 0) << result.errors;
  const nlohmann::json scene = nlohmann::json::parse(content("out/run.json"))["scene"];
  ASSERT_EQ(scene["sources"].size(), 1) << scene;
  EXPECT_EQ(scene["sources"][0]["id"], 5);
  EXPECT_NEAR(scene["sources"][0]["position"][1], std::sqrt(0.5), 1e-6);
  EXPECT_NEAR(scene["sources"][0]["active"].back()[1], 1.5, 0.05);
  EXPECT_EQ(scene["noise"][0]["id"], 6);
}

// From a pipe as from a file.
TEST_F(Streams, AreScoredAndDrawn) {
  const std::pair<std::string, std::string> cases[] = {
      {"score --json --reference FILE --estimate mix.wav", ""},
      {"score --json --reference mix.wav --estimate FILE --channel 2", ""},
      {"spectrogram FILE -o OUT.svg --channel 2-3 --title a b", "OUT.svg"}};
  for (const auto& [arguments, output] : cases) {
    SCOPED_TRACE(arguments);
    std::string results[2];
    for (const int piped : {0, 1}) {
      std::string words = arguments;
      words.replace(words.find("FILE"), 4, piped == 1 ? "-" : "mix.wav");
      const std::string picture = piped == 1 ? "piped.svg" : "drawn.svg";
      if (!output.empty()) words.replace(words.find(output), output.size(), picture);
      const CommandRun result = runOn("mix.wav", words);
      ASSERT_EQ(result.status, 0) << result.errors;
      results[piped] = output.empty() ? result.output : content(picture);
    }
    const std::size_t name = results[1].find("\"-\"");
    if (name != std::string::npos) results[1].replace(name, 3, "\"mix.wav\"");
    EXPECT_EQ(results[1], results[0]);
  }
  const CommandRun twice = runOn("mix.wav", "score --reference - --estimate -");
  EXPECT_EQ(twice.status, 2);
  EXPECT_THAT(twice.errors, HasSubstr("standard input is several of the files at once, expected"));
}

TEST_F(Streams, AreNotReadTwice) {
  const std::string start = "separate - -o out --force" + files;
  const std::pair<std::string, std::string> cases[] = {
      {start + "--method ML --noise-from 0:1", "--noise-from looks at the whole recording in adv"},
      {start + "--passes 2 --method LCMV", "--passes goes through the recording again, but - is"},
      {start + "--refine 1", "--refine goes through the recording again, but - is a stream, which"},
      {"separate - -o out --tf array.sofa --sources -", "standard input is recording and scene at"},
      {start + "--raw S16_LE,3", "--raw is \"S16_LE,3\", expected ENCODING,CHANNELS,RATE such as"},
      {start + "--raw-output S16_LE", "--raw-output serves -o -, expected it with that"},
      {"separate mix.wav -o - --force" + files, "--force serves files, expected none with -o -"},
      {"separate mix.wav mix.raw -o -" + files, "mix.wav and mix.raw would share the folder mix, "},
      {"separate mix.wav array.sofa -o -" + files, "-o - takes one recording"},
      {"separate mix.wav --print-network -o -" + files,
       "--print-network makes networks that write"},
      {"separate mix.wav - -o x" + files, "- is a stream, expected it alone or files"}};
  for (const auto& [arguments, message] : cases) {
    const CommandRun result = runOn("mix.wav", arguments);
    EXPECT_NE(result.status, 0);
    EXPECT_THAT(result.errors, testing::StartsWith("zelk-sss: " + message)) << arguments;
    EXPECT_FALSE(std::filesystem::exists(folder / "out"));
  }
}

TEST_F(Streams, SeveralRecordingsGetAFolderEach) {
  ASSERT_EQ(run("separate mix.wav -o alone" + files).status, 0);
  std::filesystem::copy(folder / "mix.wav", folder / "b.wav");
  folder.write("c.wav", "no sound");
  for (const char* name : {"mix", "b", "c"}) {
    std::filesystem::copy(folder / "scene.json", folder / (std::string(name) + ".scene.json"));
  }
  const std::string start = "separate mix.wav c.wav b.wav --tf array.sofa --sources ";
  for (const std::string options : {"scene.json -o all", "{}.scene.json -o all --force --jobs 1"}) {
    const CommandRun result = run(start + options);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, HasSubstr("zelk-sss: c.wav: cannot be read as an audio file"));
    EXPECT_THAT(result.errors, testing::EndsWith("zelk-sss: 2 of 3 recordings separated; not "
                                                 "separated: c.wav\n"));
    EXPECT_THAT(folder.names("all"), ElementsAre("b", "mix"));
    for (const char* name : {"/source_3.wav", "/source_7.wav", "/timeline.json"}) {
      EXPECT_TRUE(content("all/b" + std::string(name)) == content("alone" + std::string(name)));
    }
  }
  const CommandRun good = run("separate mix.wav b.wav -o good" + files);
  EXPECT_EQ(good.status, 0);
  EXPECT_EQ(good.errors, "");
  EXPECT_THAT(good.output, testing::EndsWith("2 of 2 recordings separated\n"));
}

// One signal, to the process that was started: those that run complete their files.
TEST_F(Streams, SeveralRecordingsEndTogether) {
  std::vector<float> samples = sound("mix.wav").samples;
  for (int i = 0; i < 5; ++i) {
    const std::vector<float> copy = samples;
    samples.insert(samples.end(), copy.begin(), copy.end());
  }
  std::string names;
  for (int i = 0; i < 5; ++i) {
    const std::string name = "long" + std::to_string(i) + ".wav";
    writeSound(folder / name, RATE, MICROPHONES, samples);
    names += name + " ";
  }
  RunningCommand command(wordsOf("separate " + names + "-o out --jobs 2 --advance 4" + files),
                         folder / "");
  usleep(400'000);
  command.send(SIGINT);
  const CommandRun result = command.wait();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.errors,
              testing::EndsWith("zelk-sss: stopped by signal 2; 0 of 5 recordings separated\n"));
  for (const std::string& name : folder.names("out")) {
    EXPECT_THAT(folder.names("out/" + name), testing::Contains("timeline.json"));
  }
}

}  // namespace
