// What a user is told, and with which exit status, when something is wrong: 2 for misuse of the
// command line, 1 for files that cannot be used.

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
            "zelk-sss: no command is given, expected one of: separate methods tfdb mix score "
            "pattern spectrogram run\n");

  expectRefused(
      2,
      {{"separat", "The following argument was not expected: separat"},
       {"run", "NETWORK is required"},
       {"separate mix.wav" + files, "--output is required"},
       {"separate mix.wav --sources scene.json -o out",
        "--tf is missing: NULL needs a transfer-function database"},
       {separate + "--method MUSIC",
        "--method is \"MUSIC\", expected one of DS, WDS, NULL, ILSE, LCMV, GJ, GICA, ML, MSNR"},
       {separate + "--method GJ --param LCMV_LC_MYU=1",
        "--param names \"LCMV_LC_MYU\", expected a parameter of GJ: GJ_LC_METHOD, GJ_LC_MYU, "
        "INITW_FILENAME"},
       {separate + "--param INITW_FILENAME", "--param is \"INITW_FILENAME\", expected NAME=VALUE"},
       {separate + "--method LCMV --param LCMV_LC_MYU=fast",
        "--param LCMV_LC_MYU is \"fast\": 'fast' is not a float"},
       {separate + "--method LCMV --param LCMV_LC_METHOD=fix",
        "--param LCMV_LC_METHOD is \"fix\", expected FIX, ADAPTIVE"},
       {separate + "--length -3", "--length: \"-3\", expected a number above 0"},
       {separate + "--project-forgetting nan", "--project-forgetting: \"nan\", expected 0 to 1"},
       {separate + "--window KAISER", "--window: KAISER not in {HANN,HAMMING,SINE,RECTANGULAR}"},
       {separate + "--method ML --noise-from 0:1,2",
        "--noise-from: \"0:1,2\", expected seconds BEGIN:END with 0 <= BEGIN < END, such as "
        "0:1.5,4:5"},
       {separate + "--noise-from 0:1", "--noise-from and --noise-recording serve ML, not NULL"},
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
       {separate + "--method ML --noise-from 90:91",
        "--noise-from has 90:91 s, expected times within mix.wav, which lasts 1.50 s"},
       {separate + "--project on --reference-mic 0",
        "--reference-mic is 0, expected 1 to 3, the channels in use of mix.wav"},
       {separate + "--project on --reference-mic 4",
        "--reference-mic is 4, expected 1 to 3, the channels in use of mix.wav"},
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

}  // namespace
