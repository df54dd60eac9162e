#include "gmock/gmock.h"
#include "tests/cli/plot/PictureTesting.h"
#include "tests/cli/process/CommandTest.h"
#include "tests/cli/spectrogram/SineSound.h"

namespace {

class SpectrogramCommand : public CommandTest {
 protected:
  SpectrogramCommand() {
    writeSound(folder / "sine.wav", 16000, 1, SineSound().samples());
    writeSound(folder / "<s>&more.wav", 8000, 2, noise(8000, 3));
  }
};

TEST_F(SpectrogramCommand, SvgNamesFilesAndUnits) {
  const CommandRun result = run("spectrogram sine.wav <s>&more.wav -o s.svg");
  ASSERT_EQ(result.status, 0);
  EXPECT_EQ(result.output + result.errors, "");
  EXPECT_THAT(textsOf(content("s.svg")),
              testing::IsSupersetOf<std::string>(
                  {"sine.wav", "<s>&more.wav, channel 1", "<s>&more.wav, channel 2", "kHz", "8",
                   "time (s)", "3", "level (dB, 0 = sine of full scale)", "-20", "-70"}));
}

// Three seconds and 8 kHz on the default panel: time runs from x = 62 to 804, frequency from y =
// 168 up to 28.
TEST_F(SpectrogramCommand, PngShowsTheSineAtItsPlace) {
  ASSERT_EQ(run("spectrogram sine.wav -o s.png").status, 0);
  const Image image = imageOf(content("s.png"));
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

TEST_F(SpectrogramCommand, DrawsSilenceInTheSizeAskedFor) {
  writeSound(folder / "silent.wav", 16000, 1, std::vector<float>(5));
  ASSERT_EQ(run("spectrogram silent.wav --width 500 --height 321 -o s.png").status, 0);
  const Image image = imageOf(content("s.png"));
  EXPECT_EQ(image.width, 500);
  EXPECT_EQ(image.height, 321);
}

TEST_F(SpectrogramCommand, SaysWhatIsWrong) {
  folder.write("text.wav", "no audio");
  folder.write("old.png", "old");
  writeSound(folder / "empty.wav", 16000, 1, {});
  writeSound(folder / "wide.wav", 16000, 40, noise(4000, 2));
  const std::string sine = "spectrogram sine.wav ";
  const std::string stereo = "spectrogram <s>&more.wav -o s.png ";
  expectRefused(2, {{"spectrogram -o s.png", "FILE is required"},
                    {sine + "-o s", "--output: \"s\", expected a name that ends in .svg or .png"},
                    {sine + "-o s.png --length 64 --advance 65",
                     "--advance: 65, expected --length, 64, at most"}});
  expectRefused(
      1, {{"spectrogram absent.wav -o s.png", "absent.wav: cannot be read…"},
          {"spectrogram text.wav -o s.png", "text.wav: cannot be read…"},
          {sine + "empty.wav -o s.png", "empty.wav: holds no samples, expected one at least"},
          {stereo + "--channel 3", "…"},
          {"spectrogram wide.wav -o s.png",
           "wide.wav: with it there are 40 panels, expected 32 at most (--channel chooses "
           "channels)"},
          {sine + "-o s.png --width 300", "--width is 300, expected 360 pixels or more"},
          {stereo + "--height 150", "--height is 150, expected 182 pixels or more for 2 panels"},
          {sine + "-o old.png",
           "old.png: exists already, expected a new name (--force replaces the file)"},
          {sine + "-o none/s.png",
           "none/s.png: cannot be written: there is no folder none, expected one that exists"}});
}

}  // namespace
