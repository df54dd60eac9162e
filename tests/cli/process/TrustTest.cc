// Bad input harms the output while it lasts, and not for ever.

#include <algorithm>
#include <cmath>
#include <limits>

#include "gmock/gmock.h"
#include "tests/cli/process/TalkersFixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int LENGTH = 512;
constexpr int ADVANCE = 128;
/// Frames that hold a sample of what is disturbed.
constexpr int OVERLAP = LENGTH / ADVANCE;
/// Three seconds, in which the methods that learn have learnt again.
constexpr int LEARNING = 3 * 16000 / ADVANCE;

struct TrustCase {
  const char* method;
  int framesToRecover;  ///< at most; what learns takes as long as learning does
};

class Trust : public Talkers, public testing::WithParamInterface<TrustCase> {
 protected:
  static constexpr int BEGIN = 2 * RATE;  ///< of the disturbance
  static constexpr int END = 3 * RATE;

  struct Output {
    std::string errors;
    std::vector<std::vector<float>> talkers;
  };

  /// The fixture's mixture over and over, for 9 s.
  Trust() {
    const std::vector<float> once = sound("mix.wav").samples;
    for (int i = 0; i < 6; ++i) recording.insert(recording.end(), once.begin(), once.end());
  }

  Output separate(const std::vector<float>& samples, const std::string& nonFinite = "ZERO",
                  const std::string& moreSources = "") const {
    const std::string method = GetParam().method;
    writeSound(folder / "in.wav", RATE, MICROPHONES, samples);
    folder.write("trust.json",
                 R"({"sources": [{"id": 3, "azimuth": 45, "active": [[0.5, 4], [4.5, 9]]},
                                 {"id": 7, "azimuth": 180, "active": [[1, 9]]})" +
                     moreSources + "]}");
    const CommandRun result =
        run("separate in.wav --sources trust.json --advance " + std::to_string(ADVANCE) +
            " --format FLOAT --force -o out --method " + method + " --non-finite " + nonFinite +
            (method == "MSNR" ? "" : " --tf array.sofa") +
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

  /// Frames from END to the last one in which a talker differs by more than -30 dB.
  static std::size_t framesToRecover(const Output& actual, const Output& expected) {
    std::size_t frames = 0;
    for (const std::size_t i : {0U, 1U}) {
      const std::vector<float>& right = expected.talkers[i];
      double power = 0;
      for (const float value : right) power += value * value / static_cast<double>(right.size());
      for (std::size_t n = END; n + ADVANCE <= right.size(); n += ADVANCE) {
        double difference = 0;
        for (std::size_t k = n; k < n + ADVANCE; ++k) {
          difference += std::pow(actual.talkers[i][k] - right[k], 2) / ADVANCE;
        }
        if (difference > 1e-3 * power) frames = std::max(frames, (n - END) / ADVANCE + 1);
      }
    }
    return frames;
  }

  std::vector<float> recording;
};

TEST_P(Trust, OutputStaysFiniteAndRecovers) {
  const std::size_t most = GetParam().framesToRecover;
  const bool hasMemory = GetParam().framesToRecover > OVERLAP;
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
  const auto warning = HasSubstr("AudioFrames: ");
  const auto spoilt = HasSubstr("samples were not finite");
  for (const auto& [name, output, isDamaged] : cases) {
    SCOPED_TRACE(name);
    EXPECT_THAT(output.errors, Not(spoilt));
    EXPECT_EQ(testing::Value(output.errors, warning), isDamaged) << output.errors;
    // What was learnt from a second of something else can take longer to forget.
    if (isDamaged || !hasMemory) {
      EXPECT_LE(framesToRecover(output, undisturbed), most);
    }
  }

  // Whoever asks for NaN gets it; a method without memory forgets it with the frame.
  const Output kept = separate(damaged({nan, infinity, -infinity}), "KEEP");
  EXPECT_THAT(kept.errors, testing::AllOf(HasSubstr("passed on"), spoilt));
  if (!hasMemory) {
    EXPECT_LE(framesToRecover(kept, undisturbed), most);
  }
}

INSTANTIATE_TEST_SUITE_P(Methods, Trust,
                         testing::Values(TrustCase{"DS", OVERLAP}, TrustCase{"WDS", OVERLAP},
                                         TrustCase{"NULL", OVERLAP}, TrustCase{"ILSE", OVERLAP},
                                         TrustCase{"ML", OVERLAP}, TrustCase{"LCMV", LEARNING},
                                         TrustCase{"GJ", LEARNING}, TrustCase{"GICA", LEARNING},
                                         TrustCase{"MSNR", LEARNING}),
                         [](const auto& testCase) { return testCase.param.method; });

}  // namespace
