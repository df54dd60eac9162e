// What a user is told, and with which exit status, when something is wrong: 2 for misuse of the
// command line, 1 for files that cannot be used.

#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "gmock/gmock.h"
#include "tests/cli/process/CommandRun.h"
#include "tests/cli/process/TalkersFixture.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

struct ErrorCase {
  const char* name;
  std::vector<std::string> arguments;  ///< DB, MIX, SCENE, DIR/… stand for files of the fixture
  int status;
  std::vector<std::string> told;
};

class Errors : public Talkers {
 protected:
  /// The fixture's files for their names.
  std::string resolved(const std::string& word) const {
    if (word == "DB") return database;
    if (word == "MIX") return mixture;
    if (word == "SCENE") return scene;
    return word.starts_with("DIR/") ? folder / word.substr(4) : word;
  }

  CommandRun run(const std::vector<std::string>& arguments) const {
    std::vector<std::string> words;
    for (const std::string& word : arguments) words.push_back(resolved(word));
    return runCommand(words);
  }
};

class ErrorMessage : public Errors, public testing::WithParamInterface<ErrorCase> {};

TEST_P(ErrorMessage, NamesWhatIsWrongAndLeavesNothingBehind) {
  const ErrorCase& c = GetParam();
  folder.write("fir.txt", "no audio");
  folder.write("empty.json", R"({"sources": []})");
  folder.write("typo.json", R"({"sources": [{"id": 0, "azimut": 30}]})");
  writeSound(folder / "mono.wav", RATE, 1, noise(8000, 1));
  writeSound(folder / "fast.wav", 2 * RATE, MICROPHONES, noise(9000, 1));
  const std::vector<std::string> before = folder.names();

  const CommandRun result = run(c.arguments);
  EXPECT_EQ(result.status, c.status);
  EXPECT_EQ(result.output, "");
  EXPECT_TRUE(result.errors.starts_with("zelk-sss: ")) << result.errors;
  for (const std::string& part : c.told) EXPECT_THAT(result.errors, HasSubstr(part));
  EXPECT_EQ(folder.names(), before);
}

/// A separation that would work, with these options added.
std::vector<std::string> separating(const std::vector<std::string>& more) {
  std::vector<std::string> all = {"separate", "MIX",     "--tf",      "DB",
                                  "-o",       "DIR/out", "--sources", "SCENE"};
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

INSTANTIATE_TEST_SUITE_P(
    Usage, ErrorMessage,
    testing::Values(
        ErrorCase{"NoCommand", {}, 2, {"no command", "separate"}},
        ErrorCase{"UnknownCommand", {"separat"}, 2, {"separat"}},
        ErrorCase{"UnknownOption", separating({"--speed", "9"}), 2, {"--speed"}},
        ErrorCase{"NoOutput",
                  {"separate", "MIX", "--tf", "DB", "--sources", "SCENE"},
                  2,
                  {"--output", "required"}},
        ErrorCase{"NoDatabase",
                  {"separate", "MIX", "--sources", "SCENE", "-o", "DIR/out"},
                  2,
                  {"--tf", "NULL needs"}},
        ErrorCase{"UnknownMethod",
                  separating({"--method", "MUSIC"}),
                  2,
                  {"--method", "MUSIC", "DS, WDS, NULL, ILSE, LCMV, GJ, GICA, ML, MSNR"}},
        ErrorCase{"ParameterOfAnotherMethod",
                  separating({"--method", "GJ", "--param", "LCMV_LC_MYU=1"}),
                  2,
                  {"LCMV_LC_MYU", "GJ_LC_MYU"}},
        ErrorCase{"ParameterWithoutValue",
                  separating({"--param", "INITW_FILENAME"}),
                  2,
                  {"INITW_FILENAME", "NAME=VALUE"}},
        ErrorCase{"ParameterNoNumber",
                  separating({"--method", "LCMV", "--param", "LCMV_LC_MYU=fast"}),
                  2,
                  {"LCMV_LC_MYU", "fast"}},
        ErrorCase{"ParameterNoChoice",
                  separating({"--method", "LCMV", "--param", "LCMV_LC_METHOD=fix"}),
                  2,
                  {"LCMV_LC_METHOD", "\"fix\"", "FIX, ADAPTIVE"}},
        ErrorCase{"LengthBelowOne",
                  separating({"--length", "-3"}),
                  2,
                  {"--length: \"-3\", expected a number above 0"}},
        ErrorCase{"ShareAboveOne",
                  separating({"--project-forgetting", "nan"}),
                  2,
                  {"--project-forgetting: \"nan\", expected 0 to 1"}},
        ErrorCase{"WindowUnknown", separating({"--window", "KAISER"}), 2, {"--window", "KAISER"}},
        ErrorCase{"NoiseForAnotherMethod",
                  separating({"--noise-from", "0:1"}),
                  2,
                  {"--noise-from", "ML", "NULL"}},
        ErrorCase{"NoiseTwice",
                  separating({"--method", "ML", "--noise-from", "0:1", "--noise-recording", "n"}),
                  2,
                  {"--noise-from", "--noise-recording"}},
        ErrorCase{"RunNothing", {"run"}, 2, {"NETWORK"}}),
    [](const auto& testCase) { return testCase.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Data, ErrorMessage,
    testing::Values(
        ErrorCase{"NoRecording",
                  {"separate", "DIR/no.wav", "--tf", "DB", "--sources", "SCENE", "-o", "DIR/out"},
                  1,
                  {"/no.wav", "No such file"}},
        ErrorCase{"RecordingOfAnotherArray",
                  {"separate", "DIR/mono.wav", "--tf", "DB", "--sources", "SCENE", "-o", "DIR/out"},
                  1,
                  {"/mono.wav", "1 channels", "3", "/array.sofa", "--channels"}},
        ErrorCase{"RecordingOfAnotherRate",
                  {"separate", "DIR/fast.wav", "--tf", "DB", "--sources", "SCENE", "-o", "DIR/out"},
                  1,
                  {"/fast.wav", "32000", "16000", "--resample"}},
        ErrorCase{"DatabaseIsNone",
                  {"separate", "MIX", "--tf", "DIR/fir.txt", "--sources", "SCENE", "-o", "DIR/out"},
                  1,
                  {"/fir.txt"}},
        ErrorCase{"LengthOfAnotherDatabase",
                  separating({"--length", "256"}),
                  1,
                  {"--length is 256, expected 512 samples, for which ", "/array.sofa was made"}},
        ErrorCase{"SceneWithUnknownKey",
                  {"separate", "MIX", "--tf", "DB", "--sources", "DIR/typo.json", "-o", "DIR/out"},
                  1,
                  {"/typo.json", "azimut"}},
        ErrorCase{"SceneWithoutSources",
                  {"separate", "MIX", "--tf", "DB", "--sources", "DIR/empty.json", "-o", "DIR/out"},
                  1,
                  {"/empty.json", "/sources", "one or more"}},
        ErrorCase{"NoNoise",
                  separating({"--method", "ML"}),
                  1,
                  {"/scene.json", "--noise-from", "--noise-recording"}},
        ErrorCase{"NoiseBeyondTheEnd",
                  separating({"--method", "ML", "--noise-from", "90:91"}),
                  1,
                  {"--noise-from has 90:91", "/mix.wav", "1.50 s"}},
        ErrorCase{"NoSuchMicrophone",
                  separating({"--project", "on", "--reference-mic", "4"}),
                  1,
                  {"--reference-mic is 4, expected 1 to 3, the channels in use of ", "/mix.wav"}},
        ErrorCase{"NoNetwork", {"run", "DIR/no.n"}, 1, {"/no.n"}},
        ErrorCase{"NetworkIsNone", {"run", "DIR/fir.txt"}, 1, {"/fir.txt"}},
        ErrorCase{"OutputIsAFile",
                  {"separate", "MIX", "--tf", "DB", "--sources", "SCENE", "-o", "DIR/fir.txt"},
                  1,
                  {"/fir.txt", "no folder"}}),
    [](const auto& testCase) { return testCase.param.name; });

// ---- warnings, and runs that end early

TEST_F(Errors, SourcesFarFromEveryResponseAndTooManyOfThemDrawWarnings) {
  const std::string crowd = folder.write(
      "crowd.json",
      R"({"sources": [{"id": 0, "azimuth": 20}, {"id": 1, "azimuth": 90}, {"id": 2, "azimuth": 180},
                      {"id": 3, "azimuth": 225, "active": [[0.5, 1]]}]})");
  const CommandRun result =
      run({"separate", "MIX", "--tf", "DB", "--sources", crowd, "-o", "DIR/out"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(
      result.errors,
      AllOf(HasSubstr(crowd + ": source 0 at azimuth 20.0"),
            HasSubstr("20 degrees away, at azimuth 0.0"), testing::Not(HasSubstr("source 1 at")),
            HasSubstr("4 sources are active at 0.50 s"), HasSubstr("3 microphones")));
  EXPECT_THAT(result.output, HasSubstr("source 1 at azimuth 90.0, elevation 0.0, 1.00 m: nearest "
                                       "response at azimuth 90.0, elevation 0.0, 1.00 m"));
}

TEST_F(Errors, AFileThatCannotGrowFailsWithoutLeavingItsHalf) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{16384, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const CommandRun result =
      run({"separate", "MIX", "--tf", "DB", "--sources", "SCENE", "-o", "DIR/out"});
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.errors, AllOf(HasSubstr("/source_"), HasSubstr("cannot be written")));
  EXPECT_TRUE(std::filesystem::is_empty(folder / "out"));
}

class Interrupted : public Errors, public testing::WithParamInterface<int> {};

TEST_P(Interrupted, ARunEndsAfterAFrameWithItsFilesComplete) {
  const std::size_t minute = 60 * RATE;
  writeSound(folder / "long.wav", RATE, MICROPHONES, noise(minute * MICROPHONES, 5));
  RunningCommand command({"separate", folder / "long.wav", "--tf", database, "--sources", scene,
                          "-o", folder / "out", "--advance", "16"});
  const std::string growing = folder / "out/source_3.wav.part";
  std::error_code missing;
  for (int i = 0; i < 2000 && !(std::filesystem::file_size(growing, missing) > 8192 && !missing);
       ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  command.send(GetParam());
  const CommandRun result = command.wait();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.errors, AllOf(HasSubstr("stopped by signal " + std::to_string(GetParam())),
                                   HasSubstr("complete")));

  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder / "out")) {
    names.push_back(entry.path().filename().string());
  }
  EXPECT_THAT(names,
              testing::UnorderedElementsAre("source_3.wav", "source_7.wav", "timeline.json"));
  const std::size_t samples = readSound(folder / "out/source_3.wav").samples.size();
  EXPECT_GT(samples, 0U);
  EXPECT_LT(samples, minute);
  EXPECT_EQ(readSound(folder / "out/source_7.wav").samples.size(), samples);
}

INSTANTIATE_TEST_SUITE_P(Signals, Interrupted, testing::Values(SIGINT, SIGTERM, SIGHUP));

}  // namespace
