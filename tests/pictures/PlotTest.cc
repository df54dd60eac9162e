#include <cmath>

#include "gmock/gmock.h"
#include "pictures/Drawing.h"
#include "pictures/PictureFile.h"
#include "pictures/Ticks.h"
#include "tests/pictures/PictureTesting.h"
#include "tests/support/AudioTesting.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Lightness falls evenly by 86 of 100: what grey print keeps.
TEST(ScaleColour, FallsEvenlyInLightness) {
  const auto lightness = [](double share) {
    return 116.0 * std::cbrt(luminance(scaleColour(share))) - 16.0;
  };
  for (double share = 0.0; share <= 1.0; share += 0.05) {
    // Colours that no screen shows are replaced by near ones, which costs 2 of lightness at most.
    EXPECT_NEAR(lightness(share), 98.0 - 86.0 * share, 2.0) << share;
  }
  EXPECT_EQ(scaleColour(-INFINITY), scaleColour(0.0));
  EXPECT_EQ(scaleColour(NAN), scaleColour(0.0));
  EXPECT_EQ(scaleColour(7.0), scaleColour(1.0));
}

TEST(Ticks, AreRoundAndFewEnough) {
  EXPECT_THAT(ticks(0.0, 8.0, 5), ElementsAre(0, 2, 4, 6, 8));
  EXPECT_THAT(ticks(-85.0, -15.0, 8), ElementsAre(-80, -70, -60, -50, -40, -30, -20));
  EXPECT_THAT(ticks(0.0, 0.03, 4), ElementsAre(0.0, testing::DoubleEq(0.01),
                                               testing::DoubleEq(0.02), testing::DoubleEq(0.03)));
  EXPECT_THAT(ticks(3.0, 3.0, 5), IsEmpty());
  EXPECT_THAT(ticks(0.0, INFINITY, 5), IsEmpty());
  for (double last = 0.1; last < 1e5; last *= 1.37) {
    for (const int most : {2, 5, 9}) {
      EXPECT_LE(ticks(0.0, last, most).size(), static_cast<std::size_t>(most)) << last;
    }
  }
}

// File names may hold any bytes; a picture with them must stay well-formed and be rendered.
TEST(Drawing, HoldsAnyText) {
  Drawing drawing(120, 80, "<&>\"\x01");
  drawing.text({10, 10}, "a<b>&\"'\x1b[0m");
  drawing.text({10, 40}, "gr\xfc\xdf ü");
  EXPECT_THAT(textsOf(drawing.svg()), ElementsAre("a<b>&\"'?[0m", "gr\uFFFD\uFFFD ü"));
  EXPECT_NO_THROW(pngOf(drawing));
}

TEST(Drawing, PngShowsWhatWasDrawnWhereItWasDrawn) {
  Drawing drawing(100, 60, "");
  Raster raster(2, 2);
  raster.at(0, 0) = {255, 0, 0};
  raster.at(1, 1) = {0, 0, 255};
  // 40 × 40 points of which the lower half shows.
  drawing.image(raster, {10, 0}, {50, 40}, {10, 20}, {50, 40});
  drawing.line({60, 30}, {100, 30}, {{0, 128, 0}, 4.0});
  const TestFolder folder;
  const Image image = imageOf(folder.write("p.png", pngOf(drawing)));
  ASSERT_EQ(image.width, 100);
  ASSERT_EQ(image.height, 60);
  EXPECT_EQ(image.at(46, 37), (Colour{0, 0, 255}));
  EXPECT_EQ(image.at(80, 30), (Colour{0, 128, 0}));
  EXPECT_THAT((std::vector{image.at(13, 3), image.at(80, 40), image.at(5, 37)}),
              testing::Each(WHITE));
}

TEST(Shortened, KeepsTheEnd) {
  EXPECT_EQ(shortened("short.wav", 200, 12), "short.wav");
  const std::string cut = shortened("/a/very/long/path/to/some/ääänderung.wav", 100, 12);
  EXPECT_TRUE(cut.starts_with("…")) << cut;
  EXPECT_TRUE(cut.ends_with("nderung.wav")) << cut;
}

}  // namespace
