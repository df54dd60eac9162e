#include "cli/tfdb/ResponseImport.h"

#include <gmock/gmock.h>

#include <cmath>
#include <complex>
#include <numbers>

#include "tests/cli/tfdb/FirFiles.h"
#include "tests/fileio/SofaFiles.h"

namespace {

using std::numbers::pi;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int LEAD = 16;  // samples of the frame before the earliest onset

SofaTransferFunctions imported(const FirFile& fir, const FrameShape& frame, ImportReport& report) {
  const TemporaryFolder folder;
  const std::string path = folder / "fir.sofa";
  fir.write(path);
  return importResponses(SofaFile(path), frame, report);
}

/// Two positions and two microphones with a unit impulse each.
FirFile impulses(const std::vector<std::size_t>& places, std::size_t length) {
  FirFile fir;
  fir.sources = {{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}};
  fir.receivers = {{0.0, 0.1, 0.0}, {0.0, -0.1, 0.0}};
  fir.length = length;
  fir.responses.assign(4 * length, 0.0);
  for (std::size_t i = 0; i < 4; ++i) fir.responses[i * length + places[i]] = 1.0;
  fir.delays = {0.0, 0.0};
  return fir;
}

/// Every response is a delay by delays[i] samples of the frame.
void expectDelays(const SofaTransferFunctions& data, const std::vector<double>& delays, int length,
                  std::size_t bins) {
  for (std::size_t i = 0; i < delays.size(); ++i) {
    for (std::size_t k = 0; k < bins; ++k) {
      const auto expected =
          std::polar(1.0, -2.0 * pi * static_cast<double>(k) * delays[i] / length);
      const std::complex<double> found(data.values[i * data.frequencies + k]);
      ASSERT_LT(std::abs(found - expected), 2e-5) << "response " << i << ", bin " << k;
    }
  }
}

struct DelayCase {
  const char* name;
  std::size_t rows;
  std::vector<double> delays;    // Data.Delay
  std::vector<double> expected;  // in the frame
  double removed;                // samples
};
void PrintTo(const DelayCase& c, std::ostream* out) { *out << c.name; }

class DelaysOfTheFile : public testing::TestWithParam<DelayCase> {};

TEST_P(DelaysOfTheFile, BelongToTheResponses) {
  FirFile fir = impulses({40, 45, 52, 41}, 80);
  fir.delayRows = GetParam().rows;
  fir.delays = GetParam().delays;
  ImportReport report;
  const auto data = imported(fir, {16000, 128}, report);
  ASSERT_EQ(data.frequencies, 65U);
  expectDelays(data, GetParam().expected, 128, 65);
  EXPECT_NEAR(report.removedDelay * 16000.0, GetParam().removed, 1e-9);
  EXPECT_EQ(report.lostEnergy, 0.0);
  EXPECT_THAT(report.warnings, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    All, DelaysOfTheFile,
    testing::Values(
        DelayCase{"none", 1, {0, 0}, {LEAD, LEAD + 5, LEAD + 12, LEAD + 1}, 24},
        DelayCase{"common", 1, {1000, 1000}, {LEAD, LEAD + 5, LEAD + 12, LEAD + 1}, 1024},
        DelayCase{"per file", 1, {10, 0}, {LEAD + 9, LEAD + 4, LEAD + 21, LEAD}, 25},
        DelayCase{"fractional", 1, {0.25, 0}, {LEAD + .25, LEAD + 5, LEAD + 12.25, LEAD + 1}, 24},
        DelayCase{"per measurement",
                  2,
                  {0, -5.5, 0, 30.125},
                  {LEAD + .5 + .5, LEAD + .5, LEAD + 13, LEAD + 32.125},
                  23}));

// A short pulse of a Gaussian shape is the same function of time at any rate.
TEST(ResponseImport, KeepsDelaysAndLevelsWhenTheRateChanges) {
  // At 48000.5 and 44111 Hz no fast transform meets the frame's frequencies.
  for (const double rate : {44100.0, 48000.0, 97656.25, 16000.0, 48000.5, 44111.0}) {
    const std::vector<double> seconds = {2.0e-3, 2.31e-3, 3.0e-3, 2.5e-3};
    constexpr double WIDTH = 1.2e-4;
    FirFile fir = impulses({0, 0, 0, 0}, static_cast<std::size_t>(rate * 6e-3));
    fir.rate = rate;
    for (std::size_t i = 0; i < 4; ++i) {
      for (std::size_t n = 0; n < fir.length; ++n) {
        const double t = (static_cast<double>(n) / rate - seconds[i]) / WIDTH;
        fir.responses[i * fir.length + n] = std::exp(-0.5 * t * t) / rate;
      }
    }
    ImportReport report;
    const auto data = imported(fir, {16000, 512}, report);
    for (std::size_t i = 0; i < 4; ++i) {
      for (std::size_t k = 0; k < 60; ++k) {
        // The transform of the pulse is √(2π) σ e^(−(2πfσ)²/2).
        const double omega = 2.0 * pi * static_cast<double>(k) * 16000.0 / 512.0;
        const auto expected =
            std::polar(std::sqrt(2.0 * pi) * WIDTH * std::exp(-0.5 * std::pow(omega * WIDTH, 2.0)),
                       -omega * (seconds[i] - report.removedDelay));
        const std::complex<double> found(data.values[i * 257 + k]);
        ASSERT_LT(std::abs(found - expected), 1e-3 * WIDTH) << rate << " Hz, bin " << k;
      }
    }
  }
}

TEST(ResponseImport, ContinuesThePureDelayAboveTheBandOfTheFile) {
  FirFile fir = impulses({40, 45, 52, 41}, 80);
  fir.rate = 8000.0;
  ImportReport report;
  const auto data = imported(fir, {16000, 512}, report);
  const double start = report.removedDelay * 16000.0;
  expectDelays(data, {80 - start, 90 - start, 104 - start, 82 - start}, 512, 257);
  ASSERT_EQ(report.warnings.size(), 1U);
  EXPECT_THAT(report.warnings[0], HasSubstr("the sampling rate is 8000 Hz: nothing is known above "
                                            "4000 Hz"));
}

// h(n) = a^n has the energy a^(2n) / (1 − a²) from sample n on.
TEST(ResponseImport, SaysHowMuchEnergyTruncationLoses) {
  constexpr double A = 0.995;
  constexpr int LENGTH = 512;
  FirFile fir = impulses({0, 0, 0, 0}, 8000);
  for (std::size_t n = 0; n < fir.length; ++n) fir.responses[n] = std::pow(A, n);
  ImportReport report;
  const auto data = imported(fir, {16000, LENGTH}, report);
  const double beforeFade = decibels(std::pow(A, 2 * (LENGTH - LEAD - LENGTH / 16)));
  const double afterFade = decibels(std::pow(A, 2 * (LENGTH - LEAD)));
  EXPECT_LT(decibels(report.worstLoss), beforeFade);
  EXPECT_GT(decibels(report.worstLoss), afterFade);
  // The other three responses have the energy 1 and lose nothing.
  const double all = 1.0 / (1.0 - A * A) + 3.0;
  EXPECT_NEAR(report.lostEnergy, report.worstLoss * (all - 3.0) / all, 1e-6);
  ASSERT_EQ(report.warnings.size(), 1U);
  EXPECT_THAT(report.warnings[0], HasSubstr("cut to a frame of 512 samples (32.0 ms)"));
  EXPECT_THAT(report.warnings[0], HasSubstr("(position 0, microphone 0)"));
}

TEST(ResponseImport, RefusesResponsesOutsideOneFrameTooLargeOnesAndSilence) {
  FirFile fir = impulses({40, 45, 52, 41}, 80);
  fir.delays = {0.0, 5000.0};
  ImportReport report;
  try {
    imported(fir, {16000, 512}, report);
    ADD_FAILURE() << "no error";
  } catch (const SofaError& error) {
    EXPECT_THAT(error.what(), HasSubstr("the response of position 0, microphone 1 lies outside a "
                                        "frame of 512 samples (32.0 ms)"));
  }
  fir = impulses({40, 45, 52, 41}, 80);
  fir.responses[3 * fir.length + 41] = fir.responses[3 * fir.length + 42] = 3e38;
  try {
    imported(fir, {16000, 512}, report);
    ADD_FAILURE() << "no error";
  } catch (const SofaError& error) {
    EXPECT_THAT(error.what(), HasSubstr("the transfer function of position 1, microphone 1 is inf "
                                        "somewhere, expected responses of less than 3.4e+38"));
  }
  fir.responses.assign(fir.responses.size(), 0.0);
  try {
    imported(fir, {16000, 512}, report);
    ADD_FAILURE() << "no error";
  } catch (const SofaError& error) {
    EXPECT_THAT(error.what(), HasSubstr("all responses are 0"));
  }
}

TEST(ResponseImport, CopiesTransferFunctionsThatFitAndConvertsOthers) {
  const TemporaryFolder folder;
  const std::string path = folder / "tf.sofa";
  FirFile fir = impulses({20, 25, 32, 21}, 80);
  ImportReport report;
  const SofaTransferFunctions first = imported(fir, {32000, 512}, report);
  writeSofa(path, first);

  ImportReport same;
  EXPECT_EQ(importResponses(SofaFile(path), {32000, 512}, same).values, first.values);
  EXPECT_TRUE(same.copied);

  SofaTransferFunctions delays = first;  // at 32 kHz, by 3.5, 8.25, 60 and 4 samples
  const double samples[] = {3.5, 8.25, 60.0, 4.0};
  for (std::size_t i = 0; i < delays.values.size(); ++i) {
    const double phase = -2.0 * pi * static_cast<double>(i % 257) * samples[i / 257] / 512.0;
    // Little is left at the band's edge: so the delays ring briefly.
    const double level = std::pow(std::cos(0.5 * pi * static_cast<double>(i % 257) / 256.0), 2.0);
    delays.values[i] = std::complex<float>(std::polar(level, phase));
  }
  writeSofa(path, delays);
  ImportReport other;
  const auto data = importResponses(SofaFile(path), {16000, 256}, other);
  EXPECT_FALSE(other.copied);
  EXPECT_LT(other.lostEnergy, 1e-4);
  for (std::size_t i = 0; i < 4; ++i) {
    for (std::size_t k = 0; k < 129; ++k) {
      const double seconds = samples[i] / 32000.0 - other.removedDelay;
      const double omega = 2.0 * pi * static_cast<double>(k) * 16000.0 / 256.0;
      const double level = std::pow(std::cos(0.5 * pi * static_cast<double>(k) / 256.0), 2.0);
      const std::complex<double> found(data.values[i * 129 + k]);
      ASSERT_LT(std::abs(found - std::polar(level, -omega * seconds)), 0.01) << i << ", bin " << k;
    }
  }
}

TEST(ResponseImport, RemarksUnitsThatAreNoMetres) {
  const TemporaryFolder folder;
  FirFile fir = impulses({40, 45, 52, 41}, 80);
  for (const char* units :
       {"metre", "Meter", "m", "degree, degree, metre", "degrees, degrees, meters"}) {
    fir.units = units;
    fir.write(folder / "good.sofa");
    EXPECT_THAT(SofaFile(folder / "good.sofa").warnings(), IsEmpty()) << units;
  }
  fir.units = "mm";
  fir.write(folder / "bad.sofa");
  EXPECT_THAT(
      SofaFile(folder / "bad.sofa").warnings(),
      testing::ElementsAre(HasSubstr("SourcePosition has the Units \"mm\", expected metres"),
                           HasSubstr("ReceiverPosition has the Units \"mm\", expected metres")));
}

}  // namespace
