#include "responses/RelativeResponses.h"

#include <gmock/gmock.h>

#include <cmath>
#include <random>

#include "responses/ArrayGeometry.h"
#include "tests/support/AudioTesting.h"

namespace {

using Complex = std::complex<double>;

SofaTransferFunctions randomResponses(std::size_t M, std::size_t R, std::size_t N, unsigned seed) {
  SofaTransferFunctions data;
  data.sourcePositions.resize(M);
  data.receiverPositions.resize(R);
  data.samplingRate = 16000.0;
  data.frequencies = N;
  std::mt19937 generator(seed);
  std::normal_distribution<float> gaussian;
  for (std::size_t i = 0; i < M * R * N; ++i) {
    data.values.emplace_back(gaussian(generator), gaussian(generator));
  }
  return data;
}

TEST(RelativeResponses, KeepTheRatiosOfTheMicrophonesWithinBounds) {
  for (const auto& [M, R, N] : {std::array<std::size_t, 3>{1, 1, 9}, {3, 2, 257}, {2, 5, 33}}) {
    for (std::size_t reference = 1; reference <= R; ++reference) {
      SofaTransferFunctions before = randomResponses(M, R, N, static_cast<unsigned>(N + reference));
      for (std::size_t m = 0; m < R; ++m) before.values[m * N + 3] = 0.0F;  // all silent
      before.values[(reference - 1) * N + 5] = 0.0F;                        // one is
      before.values[(reference - 1) * N + 6] *= 1e-6F;
      SofaTransferFunctions after = before;
      makeRelative(after, static_cast<int>(reference));
      EXPECT_EQ(after.referenceMicrophone, static_cast<int>(reference));
      for (std::size_t s = 0; s < M; ++s) {
        const auto at = [&, s = s, R = R, N = N](const SofaTransferFunctions& data, std::size_t m,
                                                 std::size_t k) {
          return Complex(data.values[(s * R + m) * N + k]);
        };
        for (std::size_t k = 0; k < N; ++k) {
          const Complex own = at(after, reference - 1, k);
          EXPECT_NEAR(own.imag(), 0.0, 1e-6);
          EXPECT_GE(own.real(), 0.0);
          for (std::size_t m = 0; m < R; ++m) {
            // |H| ≤ √R · M, and the divisor is a tenth of M or more.
            EXPECT_LE(std::abs(at(after, m, k)), 10.001 * std::sqrt(R));
            EXPECT_NEAR(
                std::abs(at(after, m, k) * at(before, 0, k) - at(after, 0, k) * at(before, m, k)),
                0.0, 1e-4);
          }
        }
      }
      for (std::size_t m = 0; m < R; ++m) EXPECT_EQ(after.values[m * N + 3], 0.0F);
    }
  }
}

// In free field the reference hears a source as loud as the array does; behind a head that takes
// away 20 dB, the gain makes up for it, and a narrow notch stays one.
TEST(RelativeResponses, LevelsTheSmoothShadowAndNotTheFineStructure) {
  SofaTransferFunctions ring =
      freeFieldResponses(circularArray(8, 0.05), gridPositions({.distances = {1.4}}), {});
  makeRelative(ring, 3);
  for (std::size_t k = 0; k < ring.frequencies; ++k) {
    EXPECT_NEAR(std::abs(ring.values[2 * ring.frequencies + k]), 1.0, 0.04) << k;
  }
  SofaTransferFunctions head = randomResponses(1, 2, 2049, 1);
  for (std::size_t k = 0; k < head.frequencies; ++k) {
    head.values[k] = k == 1000 ? 0.03F : 0.1F;
    head.values[head.frequencies + k] = 1.0F;
  }
  makeRelative(head, 1);
  const double level = std::sqrt(0.5 * (1.0 + 0.01));  // of the array, where the source has 1
  EXPECT_NEAR(std::abs(head.values[head.frequencies + 300]) * level, 1.0, 0.01);
  EXPECT_NEAR(std::abs(head.values[head.frequencies + 1000]) * level * 0.3, 1.0, 0.02);

  EXPECT_EQ(messageOf<std::runtime_error>([&] { makeRelative(head, 3); }),
            "--reference-mic is 3, expected none or 1 to 2, the microphones");
}

}  // namespace
