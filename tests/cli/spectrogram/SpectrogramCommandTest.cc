#include <filesystem>

#include "gmock/gmock.h"
#include "tests/cli/plot/PictureTesting.h"
#include "tests/cli/process/CommandRun.h"
#include "tests/cli/spectrogram/SineSound.h"
#include "tests/toolbox/AudioTesting.h"

namespace {

using testing::HasSubstr;
using testing::IsSupersetOf;

class SpectrogramCommand : public testing::Test {
 protected:
  SpectrogramCommand() {
    writeSound(sine, 16000, 1, SineSound().samples());
    writeSound(stereo, 8000, 2, noise(8000, 3));
  }

  static CommandRun draw(std::vector<std::string> words, const std::string& picture) {
    words.insert(words.begin(), "spectrogram");
    words.insert(words.end(), {"-o", picture});
    return runCommand(words);
  }

  TestFolder folder;
  std::string sine = folder / "sine.wav";
  std::string stereo = folder / "<stereo> & more.wav";
};

TEST_F(SpectrogramCommand, SvgNamesFilesAndUnits) {
  const std::string picture = folder / "s.svg";
  const CommandRun run = draw({sine, stereo}, picture);
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.output + run.errors, "");
  EXPECT_THAT(textsOf(contentOf(picture)),
              IsSupersetOf(std::vector<std::string>{
                  sine, stereo + ", channel 1", stereo + ", channel 2", "kHz", "8", "time (s)", "3",
                  "level (dB, 0 = sine of full scale)", "-20", "-70"}));
}

// Three seconds and 8 kHz on the default panel: time runs from x = 62 to 804, frequency from y =
// 168 up to 28.
TEST_F(SpectrogramCommand, PngShowsTheSineAtItsPlace) {
  const std::string picture = folder / "s.png";
  const CommandRun run = draw({sine}, picture);
  ASSERT_EQ(run.status, 0) << run.errors;
  const Image image = imageOf(contentOf(picture));
  ASSERT_EQ(image.width, 900);
  ASSERT_EQ(image.height, 214);
  const auto at = [&](double seconds, double hertz) {
    return luminance(image.at(static_cast<int>(62 + 742 * seconds / 3.0),
                              static_cast<int>(168 - 140 * hertz / 8000.0)));
  };
  // Two bins share a row of points: the darkest colour is mixed with its neighbour's.
  for (const double seconds : {1.05, 1.5, 1.95}) EXPECT_LT(at(seconds, 2000), 0.15) << seconds;
  for (const auto& [seconds, hertz] :
       {std::pair{0.9, 2000}, {2.1, 2000}, {1.5, 2500}, {1.5, 1500}, {1.5, 6000}, {0.1, 6000}}) {
    EXPECT_GT(at(seconds, hertz), 0.8) << seconds << " s, " << hertz << " Hz";
  }
}

TEST_F(SpectrogramCommand, PictureHasTheSizeAskedFor) {
  const std::string picture = folder / "s.png";
  const CommandRun run =
      draw({sine, stereo, "--channel", "2", "--width", "500", "--height", "321"}, picture);
  ASSERT_EQ(run.status, 0) << run.errors;
  const Image image = imageOf(contentOf(picture));
  EXPECT_EQ(image.width, 500);
  EXPECT_EQ(image.height, 321);
}

TEST_F(SpectrogramCommand, DrawsSilence) {
  const std::string silent = folder / "silent.wav";
  writeSound(silent, 16000, 1, std::vector<float>(5));
  EXPECT_EQ(draw({silent}, folder / "s.png").status, 0);
}

TEST_F(SpectrogramCommand, SaysWhatIsWrong) {
  const std::string empty = folder / "empty.wav";
  const std::string wide = folder / "wide.wav";
  const std::string text = folder.write("text.wav", "no audio");
  const std::string absent = folder / "absent.wav";
  const std::string picture = folder / "s.png";
  const std::string old = folder.write("old.png", "old");
  writeSound(empty, 16000, 1, {});
  writeSound(wide, 16000, 40, noise(4000, 2));
  const std::vector<std::string> before = folder.names();
  struct Case {
    std::vector<std::string> arguments;
    std::string picture;
    int status;
    std::string message;
  };
  const std::vector<Case> cases = {
      {{}, picture, 2, "FILE is required"},
      {{sine}, folder / "s", 2, "expected a name that ends in .svg or .png"},
      {{sine, "--length", "64", "--advance", "65"},
       picture,
       2,
       "--advance: 65, expected --length, 64, at most"},
      {{absent}, picture, 1, absent + ": cannot be read"},
      {{text}, picture, 1, text + ": cannot be read"},
      {{sine, empty}, picture, 1, empty + ": holds no samples, expected one at least"},
      {{stereo, "--channel", "3"},
       picture,
       1,
       "\"3\" does not fit a file whose channels are 1 to 2"},
      {{wide},
       picture,
       1,
       wide + ": with it there are 40 panels, expected 32 at most (--channel chooses channels)"},
      {{sine, "--width", "300"}, picture, 1, "--width is 300, expected 360 pixels or more"},
      {{stereo, "--height", "150"},
       picture,
       1,
       "--height is 150, expected 182 pixels or more for 2 panels"},
      {{sine}, old, 1, old + ": exists already, expected a new name (--force replaces the file)"},
      {{sine}, folder / "none/s.png", 1, "there is no folder " + (folder / "none")}};
  for (const Case& c : cases) {
    const CommandRun run = draw(c.arguments, c.picture);
    EXPECT_EQ(run.status, c.status) << c.message;
    EXPECT_TRUE(run.errors.starts_with("zelk-sss: ")) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr(c.message));
    EXPECT_EQ(run.output, "");
  }
  EXPECT_EQ(folder.names(), before);
}

}  // namespace
