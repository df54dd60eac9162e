// The machine's faults: full disks, folders that vanish or cannot be written, recordings cut off,
// plug-ins that do not load, signals. No half of a file keeps a final name, and the message says
// which file it was.

#include <sndfile.h>
#include <sys/resource.h>
#include <sys/stat.h>

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

  /// Starts a command, waits until it is ready for it, 20 s at most, and does something to it.
  template <class Ready, class Act>
  CommandRun disturbed(const std::string& arguments, Ready isReady, Act act) const {
    RunningCommand command(wordsOf(arguments), folder / "");
    for (int i = 0; i < 4000; ++i) {
      if (isReady(command)) {
        act(command);
        return command.wait();
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ADD_FAILURE() << "never ready: " << arguments;
    return {};
  }

  /// Whether a command has a file in out/ open, whatever its name, with so many bytes in it.
  auto writes(off_t bytes) const {
    return [this, bytes](const RunningCommand& command) {
      const std::string out = fs::canonical(folder / "").string() + "/out/";
      std::error_code gone;
      const fs::path descriptors = "/proc/" + std::to_string(command.id()) + "/fd";
      for (const auto& entry : fs::directory_iterator(descriptors, gone)) {
        struct stat file {};
        const std::string target = fs::read_symlink(entry.path(), gone).string();
        if (stat(entry.path().c_str(), &file) == 0 && file.st_size >= bytes &&
            target.starts_with(out)) {
          return true;
        }
      }
      return false;
    };
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
  const CommandRun run = disturbed("separate long.wav -o out --advance 64" + files, writes(8192),
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

TEST_F(Faults, RecordingsWithoutSamplesAreRefusedByEveryCommand) {
  writeSound(folder / "empty.wav", RATE, MICROPHONES, {});
  const CommandRun network = run("separate mix.wav --quiet --print-network -o out/n" + files);
  std::string document = network.output;
  document.replace(document.find("mix.wav"), 7, "empty.wav");
  folder.write("empty.n", document);
  const std::string refusal = "empty.wav: holds no samples, expected one at least";
  expectRefused(1,
                {{"separate empty.wav --quiet -o out" + files, refusal},
                 {"spectrogram empty.wav -o out/s.png", refusal},
                 {"score --reference empty.wav --estimate mix.wav", refusal},
                 {"mix scene.json --tf array.sofa --dry mix.wav empty.wav -o out/m.wav", refusal}});
  EXPECT_THAT(run("run empty.n").errors, HasSubstr(refusal));
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
  folder.write("network.n", separate("mix.wav --print-network ").output);
  const CommandRun result = run("run network.n");
  unsetenv("FLOWDESIGNER_PATH");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.errors, HasSubstr("zelk-sss: " + garbage + ": cannot be loaded: "));
}

// ---- several runs, and what one run reads and writes

TEST_F(Faults, AFolderThatARunWritesIntoIsRefused) {
  const std::string again = "separate mix.wav -o out --force" + files;
  const std::string refusal = "out: another run is writing into it, expected a folder of this";
  const CommandRun first =
      disturbed("separate long.wav -o out --advance 16" + files, writes(8192), [&](const auto& it) {
        const CommandRun second = run(again);
        EXPECT_EQ(second.status, 1);
        EXPECT_THAT(second.errors, HasSubstr(refusal));
        folder.write("again.n", run(again + "--print-network").output);
        EXPECT_THAT(run("run again.n").errors, HasSubstr(refusal));
        it.send(SIGKILL);
      });
  EXPECT_EQ(first.signal, SIGKILL);
  EXPECT_THAT(folder.names("out"), IsEmpty());
  EXPECT_EQ(run(again).status, 0);  // the lock went with its owner
}

TEST_F(Faults, AnOutputThatIsAnInputIsRefused) {
  fs::copy_file(folder / "mix.wav", folder / "out/source_3.wav");
  fs::copy_file(folder / "mix.wav", folder / "out/source_9.wav");
  folder.write("out/timeline.json", R"({"sources": [{"file": "source_9.wav"}]})");
  fs::create_symlink("out/source_3.wav", folder / "link.wav");
  fs::create_hard_link(folder / "array.sofa", folder / "hard.svg");
  const auto refusal = [](const std::string& output, const std::string& input) {
    return output + ": is the input " + input + " itself, expected another file";
  };
  const std::string source = "out/source_3.wav";
  expectRefused(
      1, {{"separate out/source_3.wav -o out --force" + files, refusal(source, source)},
          {"separate link.wav -o ./out/../out --force" + files,
           refusal("./out/../out/source_3.wav", "link.wav")},
          {"separate out/source_9.wav -o out --force" + files,
           refusal("out/source_9.wav", "out/source_9.wav")},
          {"mix scene.json --tf array.sofa --dry mix.wav link.wav -o out/source_3.wav --force",
           refusal(source, "link.wav")},
          {"tfdb import array.sofa ./array.sofa --force", refusal("./array.sofa", "array.sofa")},
          {"score --reference mix.wav --estimate link.wav -o out/source_3.wav --force",
           refusal(source, "link.wav")},
          {"pattern --tf array.sofa --sources scene.json -o hard.svg --force",
           refusal("hard.svg", "array.sofa")}});
  std::string document = run("separate mix.wav --print-network -o out --force" + files).output;
  document.replace(document.find("mix.wav"), 7, "link.wav");
  folder.write("link.n", document);
  EXPECT_THAT(run("run link.n").errors, HasSubstr(source + ": is being read by this run"));
  EXPECT_EQ(content(source), content("mix.wav"));
}

// ---- signals

const char* const LONG_MIX = "mix scene.json --tf array.sofa --dry long.wav long.wav -o out/m.wav";

class Signals : public Faults, public testing::WithParamInterface<int> {};

TEST_P(Signals, ASeparationEndsAfterAFrameWithItsFilesComplete) {
  const int signal = GetParam();
  const CommandRun run = disturbed("separate long.wav -o out --advance 16" + files, writes(8192),
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

INSTANTIATE_TEST_SUITE_P(, Signals, testing::Values(SIGINT, SIGTERM, SIGHUP));

const char* const STOPPED = "zelk-sss: stopped by a signal; nothing unfinished is left\n";

// A frame of two million samples takes many seconds; neither signal waits for its end.
TEST_F(Faults, ASignalEndsASeparationWithinAFrame) {
  for (const bool isRepeated : {false, true}) {
    const CommandRun run = disturbed(
        "separate long.wav --sources scene.json --method MSNR --length 2097152 -o slow",
        [&](const auto&) { return fs::exists(folder / "slow"); },
        [&](const auto& command) {
          std::this_thread::sleep_for(std::chrono::milliseconds(100));
          command.send(SIGTERM);
          std::this_thread::sleep_for(std::chrono::milliseconds(100));
          if (isRepeated) command.send(SIGINT);
        });
    EXPECT_EQ(run.signal, isRepeated ? SIGINT : SIGTERM);
    EXPECT_THAT(run.errors, testing::EndsWith(STOPPED));
    EXPECT_THAT(folder.names("slow"), IsEmpty());
    fs::remove_all(folder / "slow");
  }
}

// The separation has so many sources that files of those that pause have temporary names.
TEST_F(Faults, EverySignalThatEndsTheProcessLeavesNoUnfinishedFile) {
  std::string scene;
  for (int id = 0; id < 20; ++id) {
    const std::string t = std::to_string(id / 50.0);
    scene += (id == 0 ? "{\"sources\": [" : ", ") + ("{\"id\": " + std::to_string(id)) +
             ", \"azimuth\": 45, \"active\": [[" + t + ", " + std::to_string((id + 1) / 50.0) +
             "]]}";
  }
  folder.write("turns.json", scene + "]}");
  const std::string turns =
      "separate long.wav --tf array.sofa --sources turns.json --advance 16 -o out";
  const std::string geometry =
      "tfdb geometry out/g.sofa --circular 16 0.1 --azimuth-step 1 --elevations 0,9";
  const auto hasName = [&](const auto&) { return !folder.names("out").empty(); };
  const auto end = [&](const std::string& arguments, int signal, auto isReady) {
    const CommandRun run =
        disturbed(arguments, isReady, [&](const auto& command) { command.send(signal); });
    EXPECT_EQ(run.signal, signal) << arguments;
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, signal == SIGPIPE ? "" : STOPPED);
    EXPECT_THAT(folder.names("out"), IsEmpty()) << arguments;
    fs::remove_all(folder / "out");
    fs::create_directory(folder / "out");
  };
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    end(LONG_MIX, signal, writes(0));
    end(geometry, signal, hasName);
  }
  for (const int signal : {SIGQUIT, SIGPIPE, SIGXCPU, SIGALRM, SIGUSR1, SIGUSR2, SIGRTMIN}) {
    end(turns, signal, hasName);
  }
  const CommandRun killed =
      disturbed(turns, hasName, [](const auto& command) { command.send(SIGKILL); });
  EXPECT_FALSE(folder.names("out").empty());
  EXPECT_EQ(separate("mix.wav --force").status, 0);
  EXPECT_THAT(folder.names("out"), ElementsAre("source_3.wav", "source_7.wav", "timeline.json"));
}

TEST_F(Faults, AnIgnoredSignalStaysIgnored) {
  void (*const before)(int) = std::signal(SIGHUP, SIG_IGN);  // as nohup does
  const CommandRun run =
      disturbed(LONG_MIX, writes(0), [&](const auto& command) { command.send(SIGHUP); });
  std::signal(SIGHUP, before);
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(folder.names("out"), ElementsAre("m-source3.wav", "m-source7.wav", "m.wav"));
}

}  // namespace
