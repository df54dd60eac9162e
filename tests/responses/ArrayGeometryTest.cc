#include "responses/ArrayGeometry.h"

#include <gmock/gmock.h>

#include <cmath>
#include <complex>
#include <numbers>

#include "dsp/DataError.h"
#include "responses/DelayCheck.h"
#include "responses/TfdbReport.h"
#include "tests/support/AudioTesting.h"

namespace {

using std::numbers::pi;
using testing::ElementsAre;
using testing::HasSubstr;

// A source in the distance d of a microphone and D of the centre: D/d · e^(−j2πf(d − D)/c).
// Azimuths turn left, there is one source at the pole, and a line goes from right to left.
TEST(FreeField, ResponsesAreThoseOfPointSources) {
  const std::pair<Positions, Positions> arrays[] = {
      {circularArray(4, 0.1), {{0.1, 0, 0}, {0, 0.1, 0}, {-0.1, 0, 0}, {0, -0.1, 0}}},
      {linearArray(3, 0.08), {{0, -0.08, 0}, {0, 0, 0}, {0, 0.08, 0}}}};
  const Positions expected = {{0.5, 0, 0}, {0, 0.5, 0}, {-0.5, 0, 0}, {0, -0.5, 0}, {0, 0, 0.5},
                              {8, 0, 0},   {0, 8, 0},   {-8, 0, 0},   {0, -8, 0},   {0, 0, 8}};
  const Positions sources = gridPositions({90.0, {0.0, 90.0}, {0.5, 8.0}});
  ASSERT_EQ(sources.size(), expected.size());
  for (const auto& [array, microphones] : arrays) {
    const auto data = freeFieldResponses(array, sources, {48000, 1024});
    for (std::size_t i = 0; i < data.values.size(); ++i) {
      const auto& s = expected[i / 513 / microphones.size()];
      const auto& m = microphones[i / 513 % microphones.size()];
      const double D = std::hypot(s[0], s[1], s[2]);
      const double d = std::hypot(s[0] - m[0], s[1] - m[1], s[2] - m[2]);
      const double f = static_cast<double>(i % 513) * 48000.0 / 1024.0;
      const auto response = std::polar(D / d, -2.0 * pi * f * (d - D) / 343.0);
      ASSERT_LT(std::abs(std::complex<double>(data.values[i]) - response), 1e-5) << i;
    }
  }
}

TEST(MicrophoneFile, IsReadOrRefusedWithThePlace) {
  const TestFolder folder;
  const std::string path =
      folder.write("array.json", R"({"microphones": [[0, 0.1, 0], [0, -1e-1, 0.5]]})");
  EXPECT_EQ(readMicrophones(path), (Positions{{0, 0.1, 0}, {0, -0.1, 0.5}}));
  const std::pair<std::string, std::string> cases[] = {
      {R"({"microphones": [[0, 0, 0])", "is no valid JSON: "},
      {R"({"mics": []})", "found {\"mics\":[]}, expected an object with the key \"microphones\""},
      {R"({"microphones": [[0, 0, 0]], "radius": 1})", "and no other"},
      {R"({"microphones": 4})", "/microphones: found 4, expected a list of 1 to 1024 positions"},
      {R"({"microphones": [[0, 0, 0], [0, 1]]})",
       "/microphones/1: found [0,1], expected [x, y, z] in metres, each within ±100"},
      {R"({"microphones": [[0, "1", 0]]})", "/microphones/0: found [0,\"1\",0], expected"},
      {R"({"microphones": [[0, 101, 0]]})", "/microphones/0: found [0,101,0], expected"},
      {R"({"microphones": [[1, 2, 3], [0, 0, 0], [1, 2, 3]]})",
       "/microphones/2: found [1,2,3], the place of /microphones/0, expected different places"},
      {std::string(200000, '['), "is nested deeper than 8 levels"},
      {std::string(2000000, ' '), "has 2000000 bytes, expected at most 1048576"},
  };
  for (const auto& [text, reason] : cases) {
    folder.write("array.json", text);
    EXPECT_THAT(messageOf<DataError>([&] { readMicrophones(path); }),
                testing::AllOf(testing::StartsWith(path + ": "), HasSubstr(reason)));
  }
  EXPECT_THAT(messageOf<DataError>([&] { readMicrophones(folder / "none.json"); }),
              HasSubstr("is no file"));
}

TEST(DelayCheck, FiresWhenMicrophonesAreSwappedOrTheAzimuthIsReversed) {
  const Positions sources = gridPositions({10.0, {0.0, 30.0}, {1.5}});
  const auto right = freeFieldResponses(linearArray(4, 0.06), sources, {16000, 512});
  const auto agreement = compareDelays(right);
  ASSERT_TRUE(agreement);
  EXPECT_GT(agreement->correlation, 0.98);
  EXPECT_LT(agreement->rmsDifference, 0.5 / 4 / 16000.0);
  EXPECT_THAT(findingsOf(right), testing::IsEmpty());

  auto wrong = right;  // only the inner pair of the four is swapped
  std::swap(wrong.receiverPositions[1], wrong.receiverPositions[2]);
  EXPECT_THAT(findingsOf(wrong),
              ElementsAre(HasSubstr(
                  "the responses contradict the positions: between microphones 2 and 3")));

  wrong = right;
  for (auto& p : wrong.sourcePositions) p[1] = -p[1];
  EXPECT_THAT(findingsOf(wrong), ElementsAre(testing::ContainsRegex(
                                     "over 72 directions.* arrives 0\\.[0-9]+ ms later at "
                                     "microphone [0-9] than at [0-9] by the responses")));
}

TEST(DelayCheck, DoesNotJudgeByTooLittle) {
  const Positions grid = gridPositions({10.0, {0.0}, {1.5}});
  const std::pair<Positions, Positions> cases[] = {
      {linearArray(2, 0.1), {{1, 0, 0}, {0, 1, 0}, {0, -1, 0}}},
      {linearArray(2, 0.002), grid},
      {linearArray(1, 0.1), grid}};
  for (const auto& [array, sources] : cases) {
    EXPECT_FALSE(compareDelays(freeFieldResponses(array, sources, {16000, 512}))) << array.size();
  }
}

TEST(Findings, NameSharedPositionsAndSilence) {
  auto data =
      freeFieldResponses(linearArray(2, 0.1), {{1, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {16000, 16});
  std::fill(data.values.begin(), data.values.begin() + 9, 0.0F);
  for (std::size_t i = 2; i < data.values.size(); i += 9) data.values[i] = 0.0F;
  EXPECT_THAT(findingsOf(data),
              ElementsAre(HasSubstr("3 measurements share 2 source positions"),
                          "1 of 6 responses are 0 at all frequencies",
                          "all responses are 0 at 1 of 9 frequencies, the first 2000 Hz"));
}

}  // namespace
