#include "responses/Room.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

#include "dsp/DataError.h"
#include "tests/cli/FirFile.h"
#include "tests/reference/MirrorImages.h"
#include "tests/support/AudioTesting.h"

namespace {

using Place = std::array<double, 3>;

constexpr int RATE = 16000;
constexpr double C = 343.0;
const std::vector<Place> ORIGIN = {{0.0, 0.0, 0.0}};

RoomDescription described(const Place& size, double t60) {
  RoomDescription room;
  room.size = size;
  room.t60 = t60;
  return room;
}

double levelOf(const std::vector<double>& x) {
  double sum = 0.0;
  for (const double value : x) sum += value * value;
  return 10.0 * std::log10(sum);
}

// Walls of six kinds, so that no two of them can be mixed up.
TEST(ImageSources, AreThoseOfMirroringWallByWall) {
  const ShoeBox room = {{3.1, 4.3, 2.7}, {0.9, 0.3, 0.7, 0.5, 0.8, 0.6}};
  const Place source = {1.2, 3.3, 0.4};
  const Place listener = {2.0, 1.1, 1.6};
  constexpr double REACH = 12.0;  // after 12 mirrorings no image is nearer
  std::vector<double> expected(700);
  std::size_t count = 0;
  for (const auto& [p, gain] : reference::mirrorImages(room.size, room.reflection, source, 16)) {
    const double d = std::hypot(p[0] - listener[0], p[1] - listener[1], p[2] - listener[2]);
    if (d > REACH) continue;
    ++count;
    reference::addPulse(expected, 64.0 + d / C * RATE, gain / d, 64.0);
  }
  const std::vector<ImageSource> images = imagesOf(room, source, listener, REACH);
  EXPECT_EQ(images.size(), count);
  PulseTrain train(RATE, 570);
  for (const ImageSource& image : images) {
    const Place& p = image.place;
    const double d = std::hypot(p[0] - listener[0], p[1] - listener[1], p[2] - listener[2]);
    train.add(d / C * RATE, image.gain / d);
  }
  std::vector<double> difference = train.samples();
  ASSERT_EQ(train.lead(), 64U);
  difference.resize(expected.size());
  for (std::size_t n = 0; n < expected.size(); ++n) difference[n] -= expected[n];
  // Cubic interpolation on eight points a sample: worst at half the rate.
  EXPECT_LT(levelOf(difference), levelOf(expected) - 60.0);
}

TEST(ImageSources, JitterMovesAllButTheSource) {
  const ShoeBox room = {{5, 4, 3}, {0.9, 0.9, 0.9, 0.9, 0.9, 0.9}};
  const Place source = {1, 3, 1};
  const auto plain = imagesOf(room, source, {3, 2, 1}, 20.0);
  const auto moved = imagesOf(room, source, {3, 2, 1}, 20.0, 0.08, 5);
  ASSERT_EQ(plain.size(), moved.size());
  double sum = 0.0;
  for (std::size_t i = 0; i < plain.size(); ++i) {
    for (std::size_t a = 0; a < 3; ++a) {
      const double by = moved[i].place[a] - plain[i].place[a];
      EXPECT_LE(std::abs(by), 0.08);
      EXPECT_EQ(by == 0.0, plain[i].place == source);
      sum += by * by;
    }
  }
  // Even over ±0.08: a variance of 0.08² / 3.
  EXPECT_NEAR(sum / static_cast<double>(3 * plain.size()), 0.08 * 0.08 / 3.0, 2e-4);
  EXPECT_EQ(imagesOf(room, source, {3, 2, 1}, 20.0, 0.08, 5)[7].place, moved[7].place);
  EXPECT_NE(imagesOf(room, source, {3, 2, 1}, 20.0, 0.08, 6)[7].place, moved[7].place);
}

// Schroeder's integral of the squared response, from −5 to −25 dB of it.
double measuredT60(const std::vector<double>& h) {
  std::vector<double> left(h.size() + 1);
  for (std::size_t n = h.size(); n-- > 0;) left[n] = left[n + 1] + h[n] * h[n];
  const auto timeOf = [&](double decibels) {
    const auto below = std::find_if(left.begin(), left.end(), [&](double energy) {
      return energy <= left[0] * std::pow(10.0, decibels / 10.0);
    });
    return static_cast<double>(below - left.begin()) / RATE;
  };
  return 3.0 * (timeOf(-25.0) - timeOf(-5.0));
}

// Eyring's formula assumes a diffuse field; between parallel walls of a box sound falls slower.
TEST(Room, DecaysAsEyringSays) {
  for (const auto& [size, t60] : {std::pair<Place, double>{{6.0, 4.5, 2.8}, 0.2},
                                  {{6.0, 4.5, 2.8}, 0.5},
                                  {{8.0, 5.0, 3.5}, 0.7},
                                  {{4.1, 3.7, 3.3}, 0.3}}) {
    const Room room(described(size, t60), RATE);
    EXPECT_NEAR(room.t60(), t60, 1e-9);
    const double found = measuredT60(room.responses({1.2, 0.7, 0.1}, ORIGIN)[0]);
    EXPECT_GT(found, 0.85 * t60) << room.text();
    EXPECT_LT(found, 1.3 * t60) << room.text();
    RoomDescription absorbing = described(size, t60);
    absorbing.t60.reset();
    absorbing.absorption = {1.0};
    // Without echoes: one pulse at its time, of the level 1/d but for what is below 50 Hz.
    const auto direct = Room(absorbing, RATE).responses({0.0, 1.715, 0.0}, ORIGIN)[0];
    const auto peak = std::max_element(direct.begin(), direct.end());
    EXPECT_EQ(peak - direct.begin(), 64 + 80);
    EXPECT_NEAR(*peak, 1.0 / 1.715, 0.02);
  }
}

TEST(Room, TurnsAndMovesTheArray) {
  RoomDescription room = described({6, 5, 3}, 0.3);
  room.at = {2.0, 3.0, 1.0};
  room.facing = 90.0;
  const Place p = Room(room, RATE).inRoom({1.0, 0.5, 0.2}, "");
  for (std::size_t a = 0; a < 3; ++a) EXPECT_NEAR(p[a], (Place{1.5, 4.0, 1.2})[a], 1e-12);
}

// Noise from all around: in every direction as often, and all of it in the room.
TEST(Room, PlacesNearItsWallsAreSpreadEvenly) {
  RoomDescription description = described({6, 5, 3}, 0.3);
  description.at = {1.0, 4.0, 1.0};
  description.facing = 30.0;
  const Room room(description, RATE);
  Place sum = {};
  for (const Place& p : room.nearWalls(48)) {
    const Place there = room.inRoom(p, "noise");
    bool isNearWall = false;
    for (std::size_t a = 0; a < 3; ++a) {
      const double away = std::abs(there[a] - (*description.at)[a]);
      isNearWall = isNearWall || std::abs(away - 0.9 * (*description.at)[a]) < 1e-9 ||
                   std::abs(away - 0.9 * (description.size[a] - (*description.at)[a])) < 1e-9;
      sum[a] += p[a] / std::hypot(p[0], p[1], p[2]);
    }
    EXPECT_TRUE(isNearWall);
  }
  EXPECT_LT(std::hypot(sum[0], sum[1], sum[2]), 1.0);
}

// An array that hears every direction as a pulse is a microphone at its origin; the front one
// louder.
TEST(Room, ByDirectionUsesTheNearestResponse) {
  const TestFolder folder;
  FirFile fir{.sources = {{2, 0, 0}, {-2, 0, 0}},
              .receivers = {{0, 0, 0}, {0, 0, 0.1}},
              .responses = {1, 3, 1, 0},
              .delays = {0, 0}};
  fir.write(folder / "fir.sofa");
  const ResponseSet set(folder / "fir.sofa");
  const Room room(described({6, 5, 3}, 0.2), RATE);
  const auto found = room.responses({1.3, 0.4, 0.0}, set);
  const auto expected = room.responses({1.3, 0.4, 0.0}, ORIGIN)[0];
  std::vector<double> difference = found[0];
  for (std::size_t n = 0; n < difference.size(); ++n) difference[n] -= 2.0 * expected[n];
  EXPECT_LT(levelOf(difference), levelOf(expected) - 100.0);
  EXPECT_GT(levelOf(found[1]), levelOf(found[0]) + 3.0);
  EXPECT_LT(levelOf(found[1]), levelOf(found[0]) + 9.6);

  // Places of a moving source are 8 cm apart.
  const RoomResponses places(room, ORIGIN);
  EXPECT_EQ(places.nearest({1.0, 0.0, 0.0}), 0U);
  EXPECT_EQ(places.nearest({1.07, 0.0, 0.0}), 0U);
  EXPECT_EQ(places.nearest({1.09, 0.0, 0.0}), 1U);
}

TEST(Room, RefusesWhatIsNone) {
  const auto with = [](auto change) {
    RoomDescription room = described({6, 5, 3}, 0.3);
    change(room);
    return messageOf<DataError>([&] { Room(room, RATE).responses({2.5, 0, 0}, ORIGIN); });
  };
  using R = RoomDescription&;
  EXPECT_EQ(with([](R r) { r.size[1] = -5; }),
            "--room is 6,-5,3, expected sides above 0 and up to 200 m");
  EXPECT_EQ(with([](R r) { r.t60.reset(); }),
            "--room needs --t60 or --absorption, expected one of them");
  EXPECT_EQ(with([](R r) { r.t60 = 9; }), "--t60 is 9 s, expected above 0 and up to 5 s");
  EXPECT_EQ(with([](R r) {
              r.t60.reset();
              r.absorption = {0.1, 0.2};
            }),
            "--absorption is 0.1,0.2, expected one value or six, each above 0 and up to 1");
  EXPECT_THAT(with([](R r) {
                r.size = {1, 1, 1};
                r.at = {0.5, 0.5, 0.5};
                r.t60 = 5;
              }),
              testing::HasSubstr("images of a source, expected at most 5e+07"));
  EXPECT_EQ(with([](R r) {
              r.at = {5, 2, 1};
            }),
            "a source at (2.5, 0, 0) m from the array is at (7.5, 2, 1) m in the room, expected "
            "within the 6 × 5 × 3 m of --room");
  EXPECT_EQ(with([](R r) {
              r.at = {2, 2, 4};
            }),
            "--array-at: the array is at (2, 2, 4) m in the room, expected within the 6 × 5 × 3 m "
            "of --room");
}

}  // namespace
