#include "cli/Reverberation.h"

#include <gmock/gmock.h>

#include <cmath>

namespace {

constexpr int RATE = 16000;

double energy(const std::vector<double>& samples, std::size_t begin, std::size_t end) {
  double sum = 0.0;
  for (std::size_t n = begin; n < end; ++n) sum += samples[n] * samples[n];
  return sum;
}

TEST(Reverberation, HasTheEnergyAndTheDecayAskedFor) {
  const std::vector<double> response = {0.0, 0.0, 2.0, 0.5};
  const Reverberation room{0.4, 6.0, 1};
  const std::vector<double> wet = room.added(response, RATE, 0);

  const std::size_t begin = 2 + RATE / 200;  // 5 ms after the peak
  ASSERT_EQ(wet.size(), begin + 6400);
  EXPECT_EQ(energy(wet, 0, begin), 4.25);
  const double tail = energy(wet, begin, wet.size());
  EXPECT_NEAR(10.0 * std::log10(4.25 / tail), 6.0, 1e-9);
  // 60 dB in 0.4 s are 30 dB in 0.2 s; the estimate from 800 samples each varies by some 0.3 dB.
  const double early = energy(wet, begin + 400, begin + 1200);
  const double late = energy(wet, begin + 3600, begin + 4400);
  EXPECT_NEAR(10.0 * std::log10(early / late), 30.0, 1.5);

  EXPECT_EQ(room.added(response, RATE, 0), wet);
  EXPECT_NE(room.added(response, RATE, 1), wet) << "rooms would echo alike to all microphones";
  EXPECT_EQ(Reverberation{}.added(response, RATE, 0), response);
}

}  // namespace
