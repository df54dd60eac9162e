// The machine's faults: full disks, folders that vanish or cannot be written, recordings cut off,
// plug-ins that do not load, signals. No half of a file keeps a final name, and the message says
// which file it was.

#include <sched.h>
#include <sndfile.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "gmock/gmock.h"
#include "tests/cli/process/CommandRun.h"
#include "tests/cli/process/TalkersFixture.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::string> filesBelow(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code missing;
  for (const auto& entry : fs::recursive_directory_iterator(folder, missing)) {
    if (entry.is_regular_file()) names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

/// Waits, at most 20 s, until a folder has an unfinished file of at least that many bytes.
bool awaitUnfinished(const std::string& folder, std::uintmax_t bytes) {
  for (int i = 0; i < 4000; ++i) {
    std::error_code missing;
    for (const auto& entry : fs::directory_iterator(folder, missing)) {
      if (entry.path().extension() != ".part") continue;
      const std::uintmax_t size = entry.file_size(missing);
      if (!missing && size >= bytes) return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

class Faults : public Talkers {
 protected:
  void SetUp() override {
    fs::create_directory(out);
    writeSound(folder / "long.wav", RATE, MICROPHONES, noise(60 * RATE * MICROPHONES, 5));
  }

  /// A command's words, OUT standing for the output folder and the other names for the fixture's.
  std::vector<std::string> resolved(std::vector<std::string> words) const {
    for (std::string& word : words) {
      if (word == "DB") word = database;
      if (word == "MIX") word = mixture;
      if (word == "LONG") word = folder / "long.wav";
      if (word == "SCENE") word = scene;
      if (word.starts_with("OUT")) word = out + word.substr(3);
    }
    return words;
  }

  std::string out = folder / "out";
};

// ---- disks and folders

struct WriterCase {
  const char* name;
  std::vector<std::string> words;
};

const WriterCase WRITERS[] = {
    {"separate", {"separate", "MIX", "--tf", "DB", "--sources", "SCENE", "-o", "OUT"}},
    {"mix", {"mix", "SCENE", "--tf", "DB", "--dry", "MIX", "MIX", "-o", "OUT/m.wav"}},
    {"geometry", {"tfdb", "geometry", "OUT/g.sofa", "--circular", "8", "0.1"}},
    {"import", {"tfdb", "import", "DB", "OUT/i.sofa", "--rate", "16000", "--length", "512"}},
    {"pattern", {"pattern", "--tf", "DB", "--sources", "SCENE", "-o", "OUT/p.svg"}},
    {"spectrogram", {"spectrogram", "MIX", "-o", "OUT/s.png"}},
};

class Writer : public Faults, public testing::WithParamInterface<WriterCase> {
 protected:
  CommandRun run() const { return runCommand(resolved(GetParam().words)); }

  void expectFailure(const CommandRun& run) const {
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, AllOf(HasSubstr(out + "/"), testing::ContainsRegex("cannot")));
    EXPECT_THAT(filesBelow(out), IsEmpty());
  }
};

TEST_P(Writer, LeavesNothingWhenAFileCannotGrow) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{4096, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const CommandRun limited = run();
  setrlimit(RLIMIT_FSIZE, &before);
  expectFailure(limited);
}

TEST_P(Writer, LeavesNothingOnAFullDisk) {
  // A disk of this process's own, gone with it.
  if (unshare(CLONE_NEWNS) != 0 || mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", out.c_str(), "tmpfs", 0, "size=8k") != 0) {
    GTEST_SKIP() << "only root may mount a small disk";
  }
  expectFailure(run());
  umount(out.c_str());
}

// A folder in which not even root can make files.
TEST_P(Writer, SaysWhichFileCannotBeMade) {
  std::vector<std::string> words = resolved(GetParam().words);
  for (std::string& word : words) {
    if (word.starts_with(out)) word = "/proc/self/fdinfo" + word.substr(out.size());
  }
  const CommandRun run = runCommand(words);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, AllOf(HasSubstr("/proc/self/fdinfo/"), testing::ContainsRegex("cannot")));
}

INSTANTIATE_TEST_SUITE_P(Commands, Writer, testing::ValuesIn(WRITERS),
                         [](const auto& testCase) { return testCase.param.name; });

TEST_F(Faults, AFolderThatVanishesDuringARunFails) {
  RunningCommand command(resolved(
      {"separate", "LONG", "--tf", "DB", "--sources", "SCENE", "-o", "OUT", "--advance", "64"}));
  ASSERT_TRUE(awaitUnfinished(out, 8192));
  fs::remove_all(out);
  const CommandRun run = command.wait();
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, AllOf(HasSubstr(out + "/source_"), HasSubstr("cannot be written: No such "
                                                                       "file or directory")));
  EXPECT_FALSE(fs::exists(out));
}

// ---- recordings that are cut off

TEST_F(Faults, ACutOffWavIsSeparatedAsFarAsItGoes) {
  fs::resize_file(mixture, fs::file_size(mixture) / 2 + 7);
  const CommandRun run =
      runCommand(resolved({"separate", "MIX", "--tf", "DB", "--sources", "SCENE", "-o", "OUT"}));
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.errors, HasSubstr(mixture + ": the file is cut off: it holds 11"));
  EXPECT_THAT(filesBelow(out), ElementsAre("source_3.wav", "source_7.wav", "timeline.json"));
  EXPECT_NEAR(static_cast<double>(readSound(out + "/source_3.wav").samples.size()), 12000, 10);
}

TEST_F(Faults, ACutOffFlacLeavesNothing) {
  const std::string flac = folder / "cut.flac";
  writeSound(flac, RATE, MICROPHONES, readSound(mixture).samples,
             SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
  fs::resize_file(flac, fs::file_size(flac) / 2);
  const CommandRun run =
      runCommand(resolved({"separate", flac, "--tf", "DB", "--sources", "SCENE", "-o", "OUT"}));
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr(flac + ": cannot be decoded after sample "));
  EXPECT_THAT(filesBelow(out), IsEmpty());
}

// ---- plug-ins

TEST_F(Faults, PlugInsThatDoNotLoadAreNamedAndDoNotStopTheOthers) {
  fs::create_directory(folder / "plug-ins");
  const std::string garbage = folder.write("plug-ins/garbage.tlb", "no shared object");
  const std::string lonely = folder / "plug-ins/plugin-needing.tlb";
  fs::copy_file(ZELK_NEEDING_PLUGIN, lonely);
  const std::string network = folder.write("needing.n", R"(<Document>
      <Network type="subnet" name="MAIN"><Node name="n" type="PluginNode" x="0" y="0"/>
      <NetOutput name="OUTPUT" node="n" terminal="OUTPUT"/></Network></Document>)");
  setenv("FLOWDESIGNER_PATH", (folder / "plug-ins").c_str(), 1);
  const CommandRun separated =
      runCommand(resolved({"separate", "MIX", "--tf", "DB", "--sources", "SCENE", "-o", "OUT"}));
  const CommandRun needing = runCommand({"run", network});
  unsetenv("FLOWDESIGNER_PATH");
  EXPECT_EQ(separated.status, 0);
  for (const CommandRun& run : {separated, needing}) {
    EXPECT_THAT(run.errors, AllOf(HasSubstr(garbage + ": cannot be loaded: "),
                                  HasSubstr(lonely + ": cannot be loaded: "),
                                  HasSubstr("undefined symbol: testPluginNeeded")));
  }
  EXPECT_EQ(needing.status, 1);
  EXPECT_THAT(needing.errors, HasSubstr("PluginNode"));
}

// ---- signals

struct SignalCase {
  const char* name;
  int signal;
  std::vector<std::string> words;
};

class Stopped : public Faults, public testing::WithParamInterface<SignalCase> {};

TEST_P(Stopped, LeavesNoUnfinishedFile) {
  RunningCommand command(resolved(GetParam().words));
  ASSERT_TRUE(awaitUnfinished(out, 0));
  command.send(GetParam().signal);
  const CommandRun run = command.wait();
  EXPECT_EQ(run.signal, GetParam().signal);
  EXPECT_EQ(run.output, "");
  EXPECT_THAT(run.errors, HasSubstr("zelk-sss: stopped by a signal; nothing unfinished is left\n"));
  EXPECT_THAT(filesBelow(out), IsEmpty());
}

const std::vector<std::string> LONG_MIX = {"mix",  "SCENE", "--tf", "DB",       "--dry",
                                           "LONG", "LONG",  "-o",   "OUT/m.wav"};

INSTANTIATE_TEST_SUITE_P(Commands, Stopped,
                         testing::Values(SignalCase{"MixBySigint", SIGINT, LONG_MIX},
                                         SignalCase{"MixBySighup", SIGHUP, LONG_MIX},
                                         SignalCase{"GeometryBySigterm",
                                                    SIGTERM,
                                                    {"tfdb", "geometry", "OUT/g.sofa", "--circular",
                                                     "16", "0.1", "--azimuth-step", "1",
                                                     "--elevations", "0,10,20,30"}}),
                         [](const auto& testCase) { return testCase.param.name; });

TEST_F(Faults, AnIgnoredSignalStaysIgnored) {
  void (*const before)(int) = std::signal(SIGHUP, SIG_IGN);  // as nohup does
  RunningCommand command(resolved(LONG_MIX));
  std::signal(SIGHUP, before);
  ASSERT_TRUE(awaitUnfinished(out, 0));
  command.send(SIGHUP);
  EXPECT_EQ(command.wait().status, 0);
  EXPECT_THAT(filesBelow(out), ElementsAre("m-source3.wav", "m-source7.wav", "m.wav"));
}

}  // namespace
