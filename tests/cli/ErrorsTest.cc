// What a user is told, and with which exit status, when something is wrong: 2 for misuse of the
// command line, 1 for files that cannot be used.

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "gmock/gmock.h"
#include "tests/cli/TalkersFixture.h"

namespace {

using testing::HasSubstr;

class Errors : public Talkers {
 protected:
  /// A separation that would work, to which options are added.
  const std::string separate = "separate mix.wav -o out" + files;
};

TEST_F(Errors, OfUsage) {
  EXPECT_EQ(run("").status, 2);
  EXPECT_EQ(run("").errors,
            "zelk-sss: no command is given, expected one of: separate live methods tfdb arrays "
            "mix score evaluate corpus pattern spectrogram scene report run\n");

  expectRefused(
      2,
      {{"separat", "The following argument was not expected: separat; did you mean separate?"},
       {"tfdb chek a.sofa",
        "The following arguments were not expected: chek a.sofa; did you mean check?"},
       {"separate mix.wav --advence 3 --metod x -o out",
        "The following arguments were not expected: --advence --metod; did you mean --advance, "
        "--method?"},
       {"methods now", "The following argument was not expected: now"},
       {"run", "NETWORK is required"},
       {"separate mix.wav" + files, "--output is required"},
       {"separate mix.wav --sources scene.json -o out",
        "--tf is missing: NULL needs a transfer-function database"},
       {separate + "--method MUSIC",
        "--method is \"MUSIC\", expected one of DS, WDS, NULL, ILSE, LCMV, GJ, GICA, ML, MSNR, "
        "MVDR"},
       {separate + "--method GJ --param LCMV_LC_MYU=1",
        "--param names \"LCMV_LC_MYU\", expected a parameter of GJ: GJ_LC_METHOD, GJ_LC_MYU"},
       {separate + "--param INITW_FILENAME=w",
        "--param names \"INITW_FILENAME\", expected a parameter of NULL: it has none"},
       {separate + "--method GJ --param GJ_LC_MYU",
        "--param is \"GJ_LC_MYU\", expected NAME=VALUE"},
       {separate + "--method GJ --param GJ_LC_MYU=1 --param GJ_LC_MYU=2",
        "--param names \"GJ_LC_MYU\" twice, expected it once"},
       {separate + "--method GJ --param GJ_LC_MYU=-1",
        "--param GJ_LC_MYU is \"-1\", expected 0 or more"},
       {separate + "--method ML --param REG_FACTOR=nan",
        "--param REG_FACTOR is \"nan\", expected 0 or more"},
       {separate + "--method MSNR --param ALPHA=inf", "--param ALPHA is \"inf\", expected 0 to 1"},
       {separate + "--method GICA --param GICA_SS_SCAL=0",
        "--param GICA_SS_SCAL is \"0\", expected a number above 0"},
       {separate + "--method GICA --param GICA_SS_METHOD=LC_MYU --param GICA_SS_MYU=1",
        "--param GICA_SS_MYU is not used where GICA_SS_METHOD is LC_MYU, expected one of them"},
       {separate + "--method MVDR --responses a.sofa",
        "--tf serves other methods, expected --responses alone for MVDR"},
       {separate + "--responses a.sofa", "--responses serves MVDR, not NULL"},
       {"separate mix.wav --sources scene.json -o out --method MVDR",
        "--responses is missing: MVDR needs whole impulse responses"},
       {separate + "--refine 2 --print-network",
        "--print-network makes networks that go through the recording once, expected neither "
        "--passes nor --refine (--refine-live does with one)"},
       {separate + "--refine 2 --refine-live", "--refine-live excludes --refine"},
       {separate + "--latency 8 --print-network",
        "--latency needs windows that the nodes of a network do not have, expected --print-network "
        "without it (--length and --advance shorten the frames)"},
       {separate + "--latency 8 --window SINE", "--window excludes --latency"},
       {separate + "--latency 0", "--latency: \"0\", expected a number above 0"},
       {separate + "--post-mask 0.1 --print-network",
        "--post-mask needs --refine-live in a network, expected both or neither"},
       {separate + "--noise-loading 1", "--noise-loading serves ML, not NULL"},
       {separate + "--method ML --noise-from 0:1 --noise-channels 1",
        "--noise-channels selects of a noise recording, expected --noise-recording, too"},
       {separate + "--method LCMV --param LCMV_LC_MYU=fast",
        "--param LCMV_LC_MYU is \"fast\": 'fast' is not a float"},
       {separate + "--method LCMV --param LCMV_LC_METHOD=fix",
        "--param LCMV_LC_METHOD is \"fix\", expected FIX, ADAPTIVE"},
       {separate + "--length -3", "--length: \"-3\", expected a number above 0"},
       {separate + "--project-forgetting nan", "--project-forgetting: \"nan\", expected 0 to 1"},
       {separate + "--prefix a/b",
        "--prefix: \"a/b\", expected the begin of a file name without \"/\""},
       {separate + "--window KAISER", "--window: KAISER not in {HANN,HAMMING,SINE,RECTANGULAR}"},
       {separate + "--method ML --noise-from 0:1,2",
        "--noise-from: \"0:1,2\", expected seconds BEGIN:END with 0 <= BEGIN < END, such as "
        "0:1.5,4:5"},
       {separate + "--noise-from 0:1", "--noise-from serves ML, not NULL"},
       {separate + "--method ML --noise-from 0:1 --noise-recording n",
        "--noise-from and --noise-recording exclude each other"}});
}

TEST_F(Errors, OfData) {
  folder.write("fir.txt", "no audio");
  folder.write("empty.json", R"({"sources": []})");
  folder.write("typo.json", R"({"sources": [{"id": 0, "azimut": 30}]})");
  writeSound(folder / "mono.wav", RATE, 1, noise(8000, 1));
  writeSound(folder / "fast.wav", 2 * RATE, MICROPHONES, noise(9000, 1));
  const std::string others = "separate mix.wav --tf array.sofa -o out --sources ";
  expectRefused(
      1,
      {{"separate no.wav -o out" + files, "no.wav: cannot be read…No such file or directory."},
       {"separate mono.wav -o out" + files,
        "mono.wav: gives 1 channels, expected 3, a channel for each microphone of array.sofa "
        "(--channels selects)"},
       {"separate fast.wav -o out" + files,
        "fast.wav: the sampling rate is 32000 Hz, expected 16000 Hz (--resample converts it)"},
       {"separate mix.wav -o out --sources scene.json --tf fir.txt", "fir.txt…"},
       {others + "typo.json", "typo.json: /sources/0: found the unknown key \"azimut\"…"},
       {others + "empty.json", "empty.json: /sources: found none, expected one or more"},
       {separate + "--length 256",
        "--length is 256, expected 512 samples, for which array.sofa was made"},
       {separate + "--rate 8000",
        "--rate is 8000 Hz, expected 16000 Hz, for which array.sofa was made"},
       {separate + "--method ML",
        "scene.json: found a source that is always active, but ML learns the noise while none is; "
        "expected \"active\" times, or --noise-from or --noise-recording"},
       {separate + "--channels 1,1,2",
        "mix.wav: --channels is \"1,1,2\": channel 1 is named twice"},
       {separate + "--advance 512",
        "--advance is 512, with which --window HANN loses samples between the frames of 512 "
        "samples; expected 256 or less"},
       {separate + "--advance 513", "--advance is 513, expected 1 to length = 512 samples"},
       {separate + "--latency 8 --advance 129",
        "--advance is 129, expected 1 to latency = 128 samples"},
       {separate + "--latency 8 --advance 128",
        "--advance is 128, with which --latency loses samples between the frames of 128 samples; "
        "expected 64 or less"},
       {separate + "--latency 33",
        "--latency is 33 ms, expected 0.125 to 32 ms: 2 to 512 samples, a frame"},
       {separate + "--latency 0.06",
        "--latency is 0.06 ms, expected 0.125 to 32 ms: 2 to 512 samples, a frame"},
       {separate + "--method ML --noise-recording mono.wav",
        "--noise-recording: mono.wav gives 1 channels, expected 3 as mix.wav (--noise-channels "
        "selects)"},
       {separate + "--method ML --noise-recording fast.wav",
        "fast.wav: the sampling rate is 32000 Hz, expected 16000 Hz (--resample converts it)"},
       {"separate mix.wav --sources scene.json -o out --method MSNR --length 16777217",
        "--length is 16777217, expected 1 to 16777216 samples"},
       {separate + "--method ML --noise-from 0:0.0319,0.001:0.035",
        "--noise-from holds no whole frame of 512 samples (0.0320 s) of mix.wav, expected a longer "
        "time"},
       {"separate \x1B[31m\xC2\x9B\xFF.wav -o out" + files, R"(\x1B[31m\xC2\x9B\xFF.wav: cannot…)"},
       {separate + "--method ML --noise-from 90:91",
        "--noise-from has 90:91 s, expected times within mix.wav, which lasts 1.50 s"},
       {separate + "--project on --reference-mic 0",
        "--reference-mic is 0, expected 1 to 3, the channels in use of mix.wav"},
       {separate + "--project on --reference-mic 4",
        "--reference-mic is 4, expected 1 to 3, the channels in use of mix.wav"},
       {"run /dev/zero", "/dev/zero: has more than 16777216 bytes, expected at most that"},
       {"run no.n", "no.n: cannot be read: No such file or directory"},
       {"run fir.txt", "fir.txt: line 1: not well-formed XML: …"}});
}

TEST_F(Errors, SourcesFarFromEveryResponseTooManyAndAbsentOnesDrawWarnings) {
  using testing::Not;
  folder.write(
      "crowd.json",
      R"({"sources": [{"id": 0, "azimuth": 20}, {"id": 1, "azimuth": 90}, {"id": 2, "azimuth": 180},
                      {"id": 3, "azimuth": 225, "active": [[0.5, 1]]},
                      {"id": 4, "azimuth": 225, "active": [[-1, 0], [1.5, 2]]}]})");
  const CommandRun result = run("separate mix.wav --tf array.sofa --sources crowd.json -o out");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(
      result.errors,
      testing::AllOf(HasSubstr("crowd.json: source 0 at azimuth 20.0"),
                     HasSubstr("20 degrees away, at azimuth 0.0"),
                     HasSubstr("4 sources are active at 0.50 s, expected no more than the 3 "
                               "microphones"),
                     HasSubstr("crowd.json: source 4 is never active in the 1.50 s of "
                               "mix.wav, expected \"active\""),
                     Not(HasSubstr("source 1 at")), Not(HasSubstr("source 3 is never"))));
  EXPECT_THAT(result.output, HasSubstr("source 1 at azimuth 90.0, elevation 0.0, 1.00 m: nearest "
                                       "response at azimuth 90.0, elevation 0.0, 1.00 m"));
}

// What will work, but disappoint: a line each, and the run succeeds.
TEST_F(Errors, DisappointmentsAreForetold) {
  ASSERT_EQ(run("tfdb geometry line.sofa --linear 3 0.05 --azimuth-step 10").status, 0);
  folder.write("pauses.json", R"({"sources": [{"id": 1, "azimuth": 45, "active": [[0.5, 1]]},
                                              {"id": 2, "azimuth": 180, "active": [[-1, 1.5]]}]})");
  folder.write("meet.json", R"({"sources": [{"id": 1, "azimuth": 50},
      {"id": 2, "track": [{"t": 0, "azimuth": 180}, {"t": 1.5, "azimuth": 40}]}]})");
  folder.write("mirrored.json",
               R"({"sources": [{"id": 1, "azimuth": 30}, {"id": 2, "azimuth": 150}]})");
  const std::string array = " --tf array.sofa --sources ";
  const std::string shared = "one response of line.sofa serves sources 1 and 2 at 1.34 s";
  const std::string singular =
      "the matrices that separate sources 1, 2 at 0.00 s are nearly "
      "singular from 125 to 8000 Hz (condition up to ";
  const struct {
    std::string arguments;
    std::string message;  ///< "": none at all
  } cases[] = {
      {files + "--advance 257", "--advance is 257, more than half of the 512 samples of a frame"},
      {files + "--advance 256", ""},
      {" --tf line.sofa --sources meet.json --method DS", "meet.json: " + shared},
      {array + "pauses.json --method ML --noise-from 0.9:2",
       "--noise-from overlaps the active times of sources 1, 2 in pauses.json"},
      {array + "pauses.json --method ML --noise-from 0.1:0.2",
       "--noise-from overlaps the active times of source 2 in pauses.json"},
      {array + "pauses.json --method MSNR",
       "pauses.json: no pause of source 2 lies within mix.wav"},
      {" --tf line.sofa --sources mirrored.json", "mirrored.json: " + singular},
      {" --tf line.sofa --sources mirrored.json --method GICA", "mirrored.json: " + singular},
      {" --tf line.sofa --sources mirrored.json --method DS", ""}};
  for (const auto& [arguments, message] : cases) {
    SCOPED_TRACE(arguments);
    std::filesystem::remove_all(folder / "foretold");
    const CommandRun result =
        run("separate mix.wav --quiet --format FLOAT -o foretold" + arguments);
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.errors, testing::StartsWith(message.empty() ? "" : "zelk-sss: " + message));
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), message.empty() ? 0 : 1)
        << result.errors;
  }
}

// Half way between two positions it hangs on the last digit which of them serves.
TEST_F(Errors, TheReportNamesThePositionThatSeparates) {
  constexpr int STEP = 10;
  ASSERT_EQ(run("tfdb geometry ring.sofa --circular 3 0.05 --azimuth-step 10").status, 0);
  const auto writeScene = [&](const std::string& name, const std::vector<std::string>& azimuths) {
    std::string sources;
    for (std::size_t i = 0; i < azimuths.size(); ++i) {
      sources += fmt::format("{}{{\"id\": {}, \"azimuth\": {}}}", i > 0 ? "," : "", i, azimuths[i]);
    }
    folder.write(name + ".json", "{\"sources\": [" + sources + "]}");
  };
  const auto separated = [&](const std::string& name) {
    return run("separate mix.wav --method DS --tf ring.sofa --format FLOAT -o " + name +
               " --sources " + name + ".json");
  };
  std::vector<std::string> azimuths;
  for (int i = 0; i < 360 / STEP; ++i) azimuths.push_back(std::to_string(i * STEP + STEP / 2));
  writeScene("between", azimuths);
  const std::string report = separated("between").output;
  for (std::size_t i = 0; i < azimuths.size(); ++i) {
    const std::string response = "nearest response at azimuth ";
    const std::size_t at = report.find(response, report.find(fmt::format("source {} at", i)));
    ASSERT_NE(at, std::string::npos) << report;
    azimuths[i] = std::to_string(std::stod(report.substr(at + response.size())));
  }
  writeScene("named", azimuths);
  separated("named");
  std::string sounds;
  for (std::size_t i = 0; i < azimuths.size(); ++i) sounds += " mix.wav";
  for (const std::string name : {"between", "named"}) {
    ASSERT_EQ(
        run("mix " + name + ".json --tf ring.sofa -o m" + name + ".wav --dry" + sounds).status, 0);
  }
  for (std::size_t i = 0; i < azimuths.size(); ++i) {
    for (const char* name : {"{}/source_{}.wav", "m{}-source{}.wav"}) {
      const auto samples = [&](const char* scene) {
        return sound(fmt::format(fmt::runtime(name), scene, i)).samples;
      };
      EXPECT_TRUE(samples("between") == samples("named")) << name << " " << i;
    }
  }
}

}  // namespace
