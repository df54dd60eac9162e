#include <cmath>
#include <numeric>

#include "gmock/gmock.h"
#include "tests/cli/TalkersFixture.h"
#include "tests/pictures/PictureTesting.h"

namespace {

using testing::HasSubstr;

class PatternCommand : public Talkers {
 protected:
  CommandRun pattern(const std::string& more) const { return run("pattern" + files + more); }
};

TEST_F(PatternCommand, PictureNamesSourcesFrequenciesAndUnits) {
  const CommandRun run = pattern("--frequency 4000 990 1000 500 -o p.svg --width 800");
  ASSERT_EQ(run.status, 0);
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(run.output,
            "p.svg: NULL at 0.00 s, 8 directions at elevation 0°, 1 m of array.sofa\n"
            "source 3: gain 0.0 dB towards source 3, below -100 dB towards source 7\n"
            "source 7: gain below -100 dB towards source 3, 0.0 dB towards source 7\n");
  const auto texts = textsOf(content("p.svg"));
  EXPECT_THAT(texts, testing::IsSupersetOf<std::string>(
                         {"NULL: gain by direction (0 dB: unchanged)",
                          "array.sofa, 8 directions at elevation 0°, 1 m; scene.json at 0.00 s",
                          "source 3 at azimuth 45°", "source 7 at azimuth 180°", "500 Hz", "1 kHz",
                          "4 kHz", "mean over 0–8 kHz", "target", "interferer", "-20 dB", "-90°"}));
  EXPECT_EQ(texts.count("3"), 2U) << "a mark in each of the two diagrams";
  EXPECT_EQ(texts.count("7"), 2U);
  EXPECT_EQ(texts.count("1 kHz"), 1U) << "990 Hz has the same bin";

  ASSERT_EQ(pattern("--method DS -o p.png --width 640").status, 0);
  EXPECT_EQ(imageOf(folder / "p.png").width, 640);
}

// The picture's numbers are the separation's: what comes through of the talker at 180 degrees, who
// sends white noise, in the output of the other. The methods that learn do not, for once.
TEST_F(PatternCommand, GainsAreThoseOfTheSeparation) {
  writeSound(folder / "one.wav", RATE, MICROPHONES, heard(4, dry[1]));
  writeSound(folder / "noise.wav", RATE, MICROPHONES, noise(MICROPHONES * 60 * RATE, 13));
  const auto energy = [](const std::vector<float>& x) {
    return std::inner_product(x.begin(), x.end(), x.begin(), 0.0);
  };
  for (const std::string options :
       {"DS", "WDS", "NULL", "ILSE", "LCMV --param LCMV_LC_MYU=0", "GJ --param GJ_LC_MYU=0",
        "GICA --param GICA_LC_MYU=0 --param GICA_SS_MYU=0",
        "ML --noise-recording noise.wav --param REG_FACTOR=0"}) {
    SCOPED_TRACE(options);
    const std::string method = wordsOf(options).front();
    const std::string told = pattern("-o p.svg --force --method " + method).output;
    // "source 3: gain 0.0 dB towards source 3, -1.2 dB towards source 7"
    if (method != "ML") {  // which takes transfer functions of norm 1
      EXPECT_THAT(told, HasSubstr("source 3: gain 0.0 dB towards source 3, "));
    }
    const std::string before = "dB towards source 3, ";
    const std::string gain = told.substr(told.find(before) + before.size());
    const CommandRun separated =
        run("separate one.wav -o out --force --format FLOAT" + files + "--method " + options);
    ASSERT_EQ(separated.status, 0) << separated.errors;
    const double passed =
        10.0 * std::log10(energy(sound("out/source_3.wav").samples) / energy(dry[1]));
    // The noise has its mean spectrum to within some percent; DS and WDS are 0.19 dB apart.
    if (method == "NULL" || method == "ILSE") {
      EXPECT_THAT(gain, testing::StartsWith("below -100 dB towards source 7"));
      EXPECT_LT(passed, -30.0);
    } else {
      EXPECT_NEAR(std::stod(gain), passed, 0.1);
    }
  }
}

TEST_F(PatternCommand, SaysWhatIsWrong) {
  folder.write("broken.sofa", "no netCDF");
  folder.write("late.json", R"({"sources": [{"id": 0, "azimuth": 30, "active": [[1, 2]]}]})");
  folder.write("high.json", R"({"sources": [{"id": 5, "azimuth": 0, "elevation": 20}]})");
  const std::string begin = "pattern" + files;
  expectRefused(
      2, {{begin + "--method MSNR -o p.svg",
           "--method is MSNR, whose matrices come from the recording alone, expected one that "
           "uses the sources' positions"},
          {begin + "--method MUSIC -o p.svg", "--method is \"MUSIC\", expected one of…"},
          {begin + "-o p.pdf", "--output: \"p.pdf\", expected a name that ends in .svg or .png"},
          {begin + "-o p.svg --frequency 1 2 3 4 5 6 7 8 9",
           "--frequency: 9 given, expected 8 at most"},
          {begin + "-o p.svg --time nan", "--time: \"nan\", expected 0 or more"}});
  expectRefused(
      1, {{begin + "-o p.svg --frequency 8001",
           "--frequency is 8001 Hz, expected 0 to 8000 Hz, which array.sofa covers"},
          {begin + "-o p.svg --width 300",
           "--width is 300, expected 544 pixels or more for 2 diagrams side by side"},
          {"pattern --tf array.sofa --sources late.json --time 2 -o p.svg",
           "late.json: found no source that is active at 2 s, expected one or more (--time)"},
          {begin + "-o p.svg --map",
           "array.sofa: found directions at elevations from 0.0 to 0.0 degrees, expected 20 or "
           "more between them for --map"},
          {"pattern --tf broken.sofa --sources scene.json -o p.svg", "broken.sofa: …"}});
  const CommandRun noted = run("pattern --tf array.sofa --sources high.json -o p.svg");
  EXPECT_EQ(noted.status, 0);
  EXPECT_EQ(noted.errors,
            "zelk-sss: high.json: source 5 is at elevation 20.0 degrees, the picture shows 0.0 "
            "(--elevation)\n");
  ASSERT_EQ(run("tfdb geometry sphere.sofa --circular 4 0.05 --elevations 0,20").status, 0);
  const CommandRun map = run("pattern --tf sphere.sofa --sources high.json --map -o map.svg");
  EXPECT_EQ(map.status, 0);
  EXPECT_EQ(map.errors, "");
  EXPECT_THAT(textsOf(content("map.svg")),
              testing::IsSupersetOf<std::string>(
                  {"source 5 at azimuth 0°, elevation 20°", "mean over 0–8 kHz", "≤ -40 dB"}));
}

}  // namespace
