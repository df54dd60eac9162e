// Bad input harms the output while it lasts, and not for ever.

#include "gmock/gmock.h"
#include "tests/trust/Trial.h"

namespace {

struct TrustCase {
  const char* method;
  int framesToRecover;  ///< at most; what learns takes as long as learning does
};

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

/// Frames that hold a sample of the disturbed second or overlap one that does.
constexpr int OVERLAP = Trial::LENGTH / Trial::ADVANCE;

/// Three seconds, in which the methods that learn have learnt again.
constexpr int LEARNING = 3 * Trial::RATE / Trial::ADVANCE;

class Trust : public testing::TestWithParam<TrustCase> {
 protected:
  Outcome run(const std::string& disturbance) {
    return trial.run(GetParam().method, disturbanceNamed(disturbance));
  }

  Trial trial;
};

TEST_P(Trust, OutputStaysFiniteAndRecovers) {
  for (const char* name : {"silence", "a frame of NaN and infinity, ZERO", "a frame of 3e38",
                           "two sources at one position"}) {
    SCOPED_TRACE(name);
    const Outcome outcome = run(name);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.replaced, 0);
    const bool isDamaged = std::string(name).starts_with("a frame of");
    // What was learnt from a second of something else can take longer to forget than the recording.
    if (isDamaged || GetParam().framesToRecover == OVERLAP) {
      EXPECT_LE(outcome.framesToRecover, GetParam().framesToRecover);
    }
    EXPECT_EQ(countOf(outcome.errors, "AudioFrames: "), isDamaged ? 1U : 0U) << outcome.errors;
  }
}

// Whoever asks for NaN gets it; a method without memory forgets it with the frame.
TEST_P(Trust, WhatIsKeptIsReportedOnceAndSpoilsFixedMethodsForAFrameOnly) {
  const Outcome outcome = run("a frame of NaN and infinity, KEEP");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(countOf(outcome.errors, "passed on"), 1U) << outcome.errors;
  EXPECT_GT(outcome.replaced, 0);
  if (GetParam().framesToRecover == OVERLAP) {
    EXPECT_LE(outcome.framesToRecover, OVERLAP);
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
