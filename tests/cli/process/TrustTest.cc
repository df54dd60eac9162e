// Bad input harms the output while it lasts, and not for ever.

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "gmock/gmock.h"
#include "tests/cli/process/TalkersFixture.h"

namespace {

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
    CommandRun run;
    std::vector<std::vector<float>> talkers;
    int replaced = 0;  ///< samples that were not finite
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
    const std::string talkers =
        R"({"sources": [{"id": 3, "azimuth": 45, "active": [[0.5, 4], [4.5, 9]]},
                        {"id": 7, "azimuth": 180, "active": [[1, 9]]})";
    folder.write("trust.json", talkers + moreSources + "]}");
    std::string options = " --method " + method + " --non-finite " + nonFinite;
    if (method != "MSNR") options += " --tf array.sofa";
    if (method == "ML") options += " --noise-from 0:0.45";
    Output output{run("separate in.wav --sources trust.json --advance " + std::to_string(ADVANCE) +
                      " --format FLOAT --force -o out" + options),
                  {},
                  0};
    EXPECT_EQ(output.run.status, 0) << output.run.errors;
    const nlohmann::json timeline = nlohmann::json::parse(content("out/timeline.json"));
    for (const std::size_t i : {0, 1}) {
      const std::string name = timeline["sources"][i]["file"];
      output.talkers.push_back(sound("out/" + name).samples);
      output.replaced += timeline["sources"][i]["non_finite_samples"].get<int>();
    }
    return output;
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
  int framesToRecover(const Output& actual, const Output& expected) const {
    const std::size_t begin = END;
    std::size_t last = begin - ADVANCE;
    for (std::size_t i = 0; i < expected.talkers.size(); ++i) {
      const std::vector<float>& right = expected.talkers[i];
      double power = 0;
      for (const float value : right) power += value * value / static_cast<double>(right.size());
      for (std::size_t n = begin; n + ADVANCE <= right.size(); n += ADVANCE) {
        double difference = 0;
        for (std::size_t k = n; k < n + ADVANCE; ++k) {
          difference += std::pow(actual.talkers[i][k] - right[k], 2) / ADVANCE;
        }
        if (difference > 1e-3 * power) last = std::max(last, n);
      }
    }
    return static_cast<int>((last + ADVANCE - begin) / ADVANCE);
  }

  std::vector<float> recording;
};

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

TEST_P(Trust, OutputStaysFiniteAndRecovers) {
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
  for (const auto& [name, output, isDamaged] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(output.replaced, 0);
    EXPECT_EQ(countOf(output.run.errors, "AudioFrames: "), isDamaged ? 1U : 0U);
    // What was learnt from a second of something else can take longer to forget.
    if (isDamaged || GetParam().framesToRecover == OVERLAP) {
      EXPECT_LE(framesToRecover(output, undisturbed), GetParam().framesToRecover);
    }
  }

  // Whoever asks for NaN gets it; a method without memory forgets it with the frame.
  const Output kept = separate(damaged({nan, infinity, -infinity}), "KEEP");
  EXPECT_EQ(countOf(kept.run.errors, "passed on"), 1U) << kept.run.errors;
  EXPECT_GT(kept.replaced, 0);
  if (GetParam().framesToRecover == OVERLAP) {
    EXPECT_LE(framesToRecover(kept, undisturbed), OVERLAP);
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
