// The machine's faults: full disks, folders that vanish or cannot be written, recordings cut off,
// plug-ins that do not load, signals. No half of a file keeps a final name, and the message says
// which file it was.

#include <sndfile.h>
#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "gmock/gmock.h"
#include "tests/cli/TalkersFixture.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Faults : public Talkers {
 protected:
  Faults() {
    fs::create_directory(folder / "out");
    writeSound(folder / "long.wav", RATE, MICROPHONES, noise(60 * RATE * MICROPHONES, 5));
  }

  CommandRun separate(const std::string& what) const {
    return run("separate " + what + files + "-o out");
  }

  /// Starts a command, waits until it has an unfinished file of that many bytes, 20 s at most, and
  /// does something to it.
  template <class Act>
  CommandRun disturbed(const std::string& arguments, std::uintmax_t bytes, Act act) const {
    RunningCommand command(wordsOf(arguments), folder / "");
    for (int i = 0; i < 4000; ++i) {
      std::error_code missing;
      for (const auto& entry : fs::directory_iterator(folder / "out", missing)) {
        if (entry.path().extension() != ".part") continue;
        const std::uintmax_t size = entry.file_size(missing);
        if (missing || size < bytes) continue;
        act(command);
        return command.wait();
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ADD_FAILURE() << "no unfinished file";
    return {};
  }
};

// ---- disks and folders

class Writer : public Faults, public testing::WithParamInterface<const char*> {
 protected:
  CommandRun write(const std::string& target, const std::string& more = "") const {
    std::string arguments = GetParam();
    arguments.replace(arguments.find("OUT"), 3, target);
    return run(arguments + more);
  }

  void expectFailure(const std::string& target) const {
    const CommandRun failed = write(target);
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.errors, AllOf(HasSubstr(target + "/"), HasSubstr("cannot")));
    EXPECT_THAT(folder.names("out"), IsEmpty());
  }
};

TEST_P(Writer, LeavesNothingWhenAFileCannotBeMadeOrCannotGrow) {
  expectFailure("/proc/self/fdinfo");  // in which not even root can make files
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{512, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  expectFailure("out");
  setrlimit(RLIMIT_FSIZE, &before);
}

TEST_P(Writer, KeepsEachFileThatExistsUnlessForced) {
  ASSERT_EQ(write("out").status, 0);
  const bool isSeparation = std::string(GetParam()).starts_with("separate");
  for (const std::string& name : folder.names("out")) {
    fs::remove_all(folder / "out");
    fs::create_directory(folder / "out");
    folder.write("out/" + name, "precious");
    EXPECT_EQ(write("out").errors,
              "zelk-sss: out/" + name + ": exists already, expected " +
                  (isSeparation ? "no files of an earlier run (--force replaces them)\n"
                                : "a new name (--force replaces the file)\n"));
    EXPECT_EQ(content("out/" + name), "precious");
    EXPECT_THAT(folder.names("out"), ElementsAre(name));
    EXPECT_EQ(write("out", " --force").status, 0);
    EXPECT_NE(content("out/" + name), "precious");
  }
}

INSTANTIATE_TEST_SUITE_P(
    Commands, Writer,
    testing::Values("separate mix.wav --tf array.sofa --sources scene.json -o OUT",
                    "mix scene.json --tf array.sofa --dry mix.wav mix.wav -o OUT/m.wav",
                    "tfdb geometry OUT/g.sofa --circular 8 0.1",
                    "tfdb import array.sofa OUT/i.sofa --rate 16000 --length 512",
                    "pattern --tf array.sofa --sources scene.json -o OUT/p.svg",
                    "spectrogram mix.wav -o OUT/s.png",
                    "score --json --reference mix.wav --estimate mix.wav --mixture mix.wav "
                    "-o OUT/s.json"));

TEST_F(Faults, AFolderThatVanishesDuringARunFails) {
  const CommandRun run = disturbed("separate long.wav -o out --advance 64" + files, 8192,
                                   [&](const RunningCommand&) { fs::remove_all(folder / "out"); });
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, AllOf(HasSubstr("out/source_"),
                                HasSubstr("cannot be written: No such file or directory")));
  EXPECT_FALSE(fs::exists(folder / "out"));
}

TEST_F(Faults, ACutOffWavIsSeparatedAsFarAsItGoes) {
  fs::resize_file(folder / "mix.wav", fs::file_size(folder / "mix.wav") / 2 + 7);
  const CommandRun run = separate("mix.wav");
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.errors, HasSubstr("mix.wav: the file is cut off: it holds 11"));
  EXPECT_NEAR(static_cast<double>(sound("out/source_3.wav").samples.size()), 12000, 10);
}

TEST_F(Faults, ACutOffFlacLeavesNothing) {
  const std::string flac = folder / "cut.flac";
  writeSound(flac, RATE, MICROPHONES, sound("mix.wav").samples, SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
  fs::resize_file(flac, fs::file_size(flac) / 2);
  const CommandRun run = separate("cut.flac");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("cut.flac: cannot be decoded after sample "));
  EXPECT_THAT(folder.names("out"), IsEmpty());
}

// ---- plug-ins

TEST_F(Faults, APlugInThatDoesNotLoadIsNamedAndDoesNotStopTheOthers) {
  const std::string garbage = folder.write("garbage.tlb", "no shared object");
  setenv("FLOWDESIGNER_PATH", (folder / "").c_str(), 1);
  const CommandRun run = separate("mix.wav");
  unsetenv("FLOWDESIGNER_PATH");
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.errors, HasSubstr("zelk-sss: " + garbage + ": cannot be loaded: "));
}

// ---- signals

const char* const LONG_MIX = "mix scene.json --tf array.sofa --dry long.wav long.wav -o out/m.wav";

class Signals : public Faults, public testing::WithParamInterface<int> {};

TEST_P(Signals, ASeparationEndsAfterAFrameWithItsFilesComplete) {
  const int signal = GetParam();
  const CommandRun run = disturbed("separate long.wav -o out --advance 16" + files, 8192,
                                   [&](const auto& command) { command.send(signal); });
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_THAT(run.errors, AllOf(HasSubstr("stopped by signal " + std::to_string(signal)),
                                HasSubstr("complete")));
  EXPECT_THAT(folder.names("out"), ElementsAre("source_3.wav", "source_7.wav", "timeline.json"));
  const std::size_t samples = sound("out/source_3.wav").samples.size();
  EXPECT_GT(samples, 0U);
  EXPECT_LT(samples, 60U * RATE);
  EXPECT_EQ(sound("out/source_7.wav").samples.size(), samples);
}

TEST_P(Signals, OtherCommandsLeaveNoUnfinishedFile) {
  for (const char* arguments :
       {LONG_MIX, "tfdb geometry out/g.sofa --circular 16 0.1 --azimuth-step 1 --elevations 0,9"}) {
    const CommandRun run =
        disturbed(arguments, 0, [](const auto& command) { command.send(GetParam()); });
    EXPECT_EQ(run.signal, GetParam());
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "zelk-sss: stopped by a signal; nothing unfinished is left\n");
    EXPECT_THAT(folder.names("out"), IsEmpty());
  }
}

INSTANTIATE_TEST_SUITE_P(, Signals, testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST_F(Faults, AnIgnoredSignalStaysIgnored) {
  void (*const before)(int) = std::signal(SIGHUP, SIG_IGN);  // as nohup does
  const CommandRun run = disturbed(LONG_MIX, 0, [&](const auto& command) { command.send(SIGHUP); });
  std::signal(SIGHUP, before);
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(folder.names("out"), ElementsAre("m-source3.wav", "m-source7.wav", "m.wav"));
}

}  // namespace
