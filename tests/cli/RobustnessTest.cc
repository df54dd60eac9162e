// Bad input harms the output while it lasts, and not for ever.

#include <algorithm>
#include <limits>
#include <set>

#include "gmock/gmock.h"
#include "tests/cli/TalkersFixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class Robustness : public Talkers, public testing::WithParamInterface<std::string> {
 protected:
  static constexpr int LENGTH = 512;
  static constexpr int BEGIN = 2 * RATE;  ///< of the disturbance
  static constexpr int END = 3 * RATE;

  struct Output {
    std::string errors;
    std::vector<std::vector<float>> talkers;
  };

  /// The fixture's mixture over and over, for 9 s.
  Robustness() {
    const std::vector<float> once = sound("mix.wav").samples;
    for (int i = 0; i < 6; ++i) recording.insert(recording.end(), once.begin(), once.end());
  }

  // The talkers are heard all the time, which leaves MSNR without a contrast to learn: its filters
  // then hang on the identity matrices that it begins with, and on how loud the recording is.
  Output separate(const std::vector<float>& samples, const std::string& nonFinite = "ZERO",
                  const std::string& moreSources = "") const {
    const std::string method = GetParam();
    writeSound(folder / "in.wav", RATE, MICROPHONES, samples);
    folder.write("scene.json",
                 R"({"sources": [{"id": 3, "azimuth": 45, "active": [[0.5, 4], [4.5, 9]]},
                                 {"id": 7, "azimuth": 180, "active": [[1, 9]]})" +
                     moreSources + "]}");
    const CommandRun result =
        run("separate in.wav --sources scene.json --advance 128 --format FLOAT --force -o out "
            "--method " +
            method + " --non-finite " + nonFinite +
            (method == "MSNR" ? " --level off" : " --tf array.sofa") +
            (method == "ML" ? " --noise-from 0:0.45" : ""));
    EXPECT_EQ(result.status, 0) << result.errors;
    return {result.errors, {sound("out/source_3.wav").samples, sound("out/source_7.wav").samples}};
  }

  /// The recording with values in turn in place of one microphone's last frame before END.
  std::vector<float> damaged(const std::vector<float>& values) const {
    std::vector<float> samples = recording;
    for (std::size_t i = 0; i < LENGTH; ++i) {
      samples[(END - LENGTH + i) * MICROPHONES + 1] = values[i % values.size()];
    }
    return samples;
  }

  /// After the time to recover the talkers are what they were to be.
  void expectRecovered(const Output& actual, const Output& expected) const {
    // What learns takes as long as learning does.
    const int time = hasMemory ? 3 * RATE : LENGTH;
    for (const std::size_t i : {0U, 1U}) {
      const auto after = [&](const std::vector<float>& all) {
        return std::vector<float>(all.begin() + END + time, all.end());
      };
      EXPECT_LT(differenceInDb(after(actual.talkers[i]), after(expected.talkers[i])),
                hasMemory ? -40.0 : -100.0);
    }
  }

  const bool hasMemory = std::set<std::string>{"LCMV", "GJ", "GICA", "MSNR"}.contains(GetParam());
  std::vector<float> recording;
};

TEST_P(Robustness, OutputStaysFiniteAndRecovers) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  const Output undisturbed = separate(recording);
  std::vector<float> silent = recording;
  std::fill(silent.begin() + BEGIN * MICROPHONES, silent.begin() + END * MICROPHONES, 0.0F);
  const std::string same = R"(, {"id": 9, "azimuth": 45, "active": [[2, 3]]})";
  const struct {
    const char* name;
    Output output;
    bool isDamaged;
  } cases[] = {{"silence", separate(silent), false},
               {"not finite", separate(damaged({nan, infinity, -infinity})), true},
               {"3e38", separate(damaged({3e38F, -3e38F})), true},
               {"two sources at one position", separate(recording, "ZERO", same), false}};
  const auto warning = HasSubstr("zelk-sss: in.wav: samples that are ");
  const auto spoilt = HasSubstr("samples were not finite");
  for (const auto& [name, output, isDamaged] : cases) {
    SCOPED_TRACE(name);
    EXPECT_THAT(output.errors, Not(spoilt));
    EXPECT_EQ(testing::Value(output.errors, warning), isDamaged) << output.errors;
    // What was learnt from a second of something else can take longer to forget.
    if (isDamaged || !hasMemory) expectRecovered(output, undisturbed);
  }

  // Whoever asks for NaN gets it; a method without memory forgets it with the frame.
  const Output kept = separate(damaged({nan, infinity, -infinity}), "KEEP");
  EXPECT_THAT(kept.errors, testing::AllOf(HasSubstr("passed on"), spoilt));
  if (!hasMemory) expectRecovered(kept, undisturbed);
}

INSTANTIATE_TEST_SUITE_P(Methods, Robustness,
                         testing::Values("DS", "WDS", "NULL", "ILSE", "ML", "LCMV", "GJ", "GICA",
                                         "MSNR"));

}  // namespace
