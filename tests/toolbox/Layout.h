#pragma once

#include "gtest/gtest.h"
#include "tests/support/NodeTesting.h"

/// The layout of frames in the tests of the toolbox.

inline constexpr int RATE = 1000;
inline constexpr int LENGTH = 64;
inline constexpr int ADVANCE = 16;
inline constexpr int BINS = LENGTH / 2 + 1;

/// LENGTH, ADVANCE and SAMPLING_RATE, then the others, which may replace them.
inline Parameters withLayout(const Parameters& others) {
  Parameters all = {
      {"LENGTH", number(LENGTH)}, {"ADVANCE", number(ADVANCE)}, {"SAMPLING_RATE", number(RATE)}};
  all.insert(all.end(), others.begin(), others.end());
  return all;
}
