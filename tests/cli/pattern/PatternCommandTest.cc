#include <cmath>
#include <numeric>

#include "gmock/gmock.h"
#include "tests/cli/plot/PictureTesting.h"
#include "tests/cli/process/CommandRun.h"
#include "tests/cli/process/TalkersFixture.h"

namespace {

using testing::HasSubstr;
using testing::IsSupersetOf;

class PatternCommand : public Talkers {
 protected:
  CommandRun pattern(const std::vector<std::string>& more) const {
    std::vector<std::string> words = {"pattern", "--tf", database, "--sources", scene};
    words.insert(words.end(), more.begin(), more.end());
    return runCommand(words);
  }
};

TEST_F(PatternCommand, SvgNamesSourcesFrequenciesAndUnits) {
  const std::string picture = folder / "p.svg";
  const CommandRun run =
      pattern({"--frequency", "4000", "990", "1000", "500", "-o", picture, "--width", "800"});
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(run.output,
            picture + ": NULL at 0.00 s, 8 directions at elevation 0°, 1 m of " + database +
                "\nsource 3: gain 0.0 dB towards source 3, below -100 dB towards source 7\n"
                "source 7: gain below -100 dB towards source 3, 0.0 dB towards source 7\n");
  const auto texts = textsOf(contentOf(picture));
  EXPECT_THAT(texts,
              IsSupersetOf(std::vector<std::string>{
                  "NULL: gain by direction (0 dB: unchanged)",
                  "array.sofa, 8 directions at elevation 0°, 1 m; scene.json at "
                  "0.00 s",
                  "source 3 at azimuth 45°", "source 7 at azimuth 180°", "500 Hz", "1 kHz", "4 kHz",
                  "mean of all", "target", "interferer", "-20 dB", "0 dB", "-90°"}));
  EXPECT_EQ(texts.count("3"), 2U) << "a mark in each of the two diagrams";
  EXPECT_EQ(texts.count("7"), 2U);
  EXPECT_EQ(texts.count("1 kHz"), 1U) << "990 Hz has the same bin";
}

TEST_F(PatternCommand, PngHasTheWidthAndColoursAskedFor) {
  const std::string picture = folder / "p.png";
  const CommandRun run = pattern({"--method", "DS", "-o", picture, "--width", "640"});
  ASSERT_EQ(run.status, 0) << run.errors;
  const Image image = imageOf(contentOf(picture));
  EXPECT_EQ(image.width, 640);
  EXPECT_GT(image.height, 300);
  std::set<std::string> colours;
  for (const Colour& colour : image.points) colours.insert(colour.hex());
  EXPECT_GT(colours.size(), 100U);
}

// The picture's numbers are the separation's: what comes through of the talker at 180 degrees, who
// sends white noise, in the output of the other.
TEST_F(PatternCommand, GainsAreThoseOfTheSeparation) {
  const std::vector<float>& sent = dry[1];
  std::vector<float> heard(sent.size() * MICROPHONES);
  for (int r = 0; r < MICROPHONES; ++r) {
    const std::vector<double>& h = response(4, r);
    for (std::size_t n = 0; n < sent.size(); ++n) {
      double sum = 0.0;
      for (std::size_t d = 0; d < h.size() && d <= n; ++d) sum += h[d] * sent[n - d];
      heard[n * MICROPHONES + static_cast<std::size_t>(r)] = static_cast<float>(sum);
    }
  }
  const std::string recording = folder / "one.wav";
  writeSound(recording, RATE, MICROPHONES, heard);
  const auto energy = [](const std::vector<float>& x) {
    return std::inner_product(x.begin(), x.end(), x.begin(), 0.0);
  };
  for (const char* method : {"DS", "WDS"}) {
    const CommandRun drawn = pattern({"--method", method, "-o", folder / "p.svg", "--force"});
    ASSERT_EQ(drawn.status, 0) << drawn.errors;
    // "source 3: gain 0.0 dB towards source 3, -1.2 dB towards source 7"
    const std::string before = "source 3: gain 0.0 dB towards source 3, ";
    ASSERT_THAT(drawn.output, HasSubstr(before));
    const double told = std::stod(drawn.output.substr(drawn.output.find(before) + before.size()));
    const CommandRun separated =
        runCommand({"separate", recording, "--tf", database, "--sources", scene, "--method", method,
                    "-o", folder / method, "--format", "FLOAT"});
    ASSERT_EQ(separated.status, 0) << separated.errors;
    const double gain =
        10.0 *
        std::log10(energy(readSound(folder / method + "/source_3.wav").samples) / energy(sent));
    // One and a half seconds of noise have their mean spectrum to within some percent.
    EXPECT_NEAR(told, gain, 0.3) << method;
  }
}

TEST_F(PatternCommand, SaysWhatIsWrong) {
  const std::string broken = folder.write("broken.sofa", "no netCDF");
  const std::string late =
      folder.write("late.json", R"({"sources": [{"id": 0, "azimuth": 30, "active": [[1, 2]]}]})");
  const std::string high =
      folder.write("high.json", R"({"sources": [{"id": 5, "azimuth": 0, "elevation": 20}]})");
  const std::string old = folder.write("old.svg", "old");
  const std::string picture = folder / "p.svg";
  struct Case {
    std::vector<std::string> arguments;
    int status;
    std::string message;
  };
  const std::vector<Case> cases = {
      {{"--method", "MSNR", "-o", picture},
       2,
       "--method is MSNR, whose matrices come from the recording alone, "
       "expected one that uses the sources' positions (--help shows the usage)"},
      {{"--method", "MUSIC", "-o", picture},
       2,
       "--method is \"MUSIC\", expected one of DS, WDS, NULL, ILSE, LCMV, GJ, GICA, ML, MSNR "
       "(--help "
       "shows the usage)"},
      {{"-o", folder / "p.pdf"},
       2,
       "--output: \"" + (folder / "p.pdf") +
           "\", expected a name that ends in .svg or .png (--help shows the usage)"},
      {{"-o", picture, "--frequency", "1", "2", "3", "4", "5", "6", "7", "8", "9"},
       2,
       "--frequency: 9 given, expected 8 at most (--help shows the usage)"},
      {{"-o", picture, "--time", "nan"},
       2,
       "--time: \"nan\", expected 0 or more (--help shows the usage)"},
      {{"-o", picture, "--frequency", "8001"},
       1,
       "--frequency is 8001 Hz, expected 0 to 8000 Hz, which " + database + " covers"},
      {{"-o", picture, "--width", "300"},
       1,
       "--width is 300, expected 544 pixels or more for 2 diagrams side by side"},
      {{"-o", old}, 1, old + ": exists already, expected a new name (--force replaces the file)"}};
  for (const Case& c : cases) {
    const CommandRun run = pattern(c.arguments);
    EXPECT_EQ(run.status, c.status) << c.message;
    EXPECT_EQ(run.errors, "zelk-sss: " + c.message + "\n");
    EXPECT_EQ(run.output, "");
  }
  const CommandRun noSource =
      runCommand({"pattern", "--tf", database, "--sources", late, "--time", "2", "-o", picture});
  EXPECT_EQ(noSource.status, 1);
  EXPECT_EQ(noSource.errors, "zelk-sss: " + late +
                                 ": found no source that is active at 2 s, expected one or more "
                                 "(--time)\n");
  const CommandRun noDatabase =
      runCommand({"pattern", "--tf", broken, "--sources", scene, "-o", picture});
  EXPECT_EQ(noDatabase.status, 1);
  EXPECT_THAT(noDatabase.errors, HasSubstr(broken));
  EXPECT_FALSE(std::filesystem::exists(picture));
  const CommandRun noted =
      runCommand({"pattern", "--tf", database, "--sources", high, "-o", picture});
  EXPECT_EQ(noted.status, 0);
  EXPECT_EQ(noted.errors, "zelk-sss: " + high +
                              ": source 5 is at elevation 20.0 degrees, the picture shows 0.0 "
                              "(--elevation)\n");
}

}  // namespace
