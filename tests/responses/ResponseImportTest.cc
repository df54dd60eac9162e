#include "responses/ResponseImport.h"

#include <gmock/gmock.h>

#include <cmath>
#include <complex>
#include <functional>
#include <numbers>

#include "dsp/DataError.h"
#include "fileio/SofaWriter.h"
#include "responses/ResponseSet.h"
#include "tests/cli/FirFile.h"
#include "tests/support/AudioTesting.h"

namespace {

using std::numbers::pi;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Samples of the frame before the earliest onset.
constexpr double leadOf(int length) { return std::max(std::min(16, length / 8), length / 32); }

/// Two positions and two microphones with a unit impulse each.
FirFile impulses(const std::vector<std::size_t>& places, std::size_t length = 80) {
  FirFile fir{.sources = {{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}},
              .receivers = {{0.0, 0.1, 0.0}, {0.0, -0.1, 0.0}},
              .length = length,
              .responses = std::vector<double>(4 * length),
              .delays = {0.0, 0.0}};
  for (std::size_t i = 0; i < 4; ++i) fir.responses[i * length + places[i]] = 1.0;
  return fir;
}

class ResponseImport : public testing::Test {
 protected:
  SofaTransferFunctions imported(const FirFile& fir, const FrameShape& frame) {
    fir.write(folder / "fir.sofa");
    report = {};
    return importResponses(SofaFile(folder / "fir.sofa"), frame, report);
  }

  /// Response i is level(f) times a delay of so many seconds, but for the common one removed.
  void expectDelays(const SofaTransferFunctions& data, const std::vector<double>& seconds,
                    double tolerance, const std::function<double(double)>& level) const {
    for (std::size_t i = 0; i < seconds.size(); ++i) {
      for (std::size_t k = 0; k < data.frequencies; ++k) {
        const double f = 0.5 * data.samplingRate * static_cast<double>(k) /
                         static_cast<double>(data.frequencies - 1);
        const auto expected =
            std::polar(level(f), -2.0 * pi * f * (seconds[i] - report.removedDelay));
        const std::complex<double> found(data.values[i * data.frequencies + k]);
        ASSERT_LT(std::abs(found - expected), tolerance) << "response " << i << ", " << f << " Hz";
      }
    }
  }

  static double unity(double) { return 1.0; }

  TestFolder folder;
  ImportReport report;
};

TEST_F(ResponseImport, AddsTheDelaysOfTheFile) {
  const std::vector<std::size_t> places = {40, 45, 52, 41};
  const std::vector<double> cases[] = {
      {0, 0}, {1000, 1000}, {10, 0}, {0.25, 0}, {0, -5.5, 0, 30.125}};
  for (const std::vector<double>& delays : cases) {
    SCOPED_TRACE(testing::PrintToString(delays));
    FirFile fir = impulses(places);
    fir.delays = delays;
    const auto data = imported(fir, {16000, 128});
    ASSERT_EQ(data.frequencies, 65U);
    std::vector<double> seconds;
    for (std::size_t i = 0; i < 4; ++i) {
      seconds.push_back((static_cast<double>(places[i]) + delays[i % delays.size()]) / 16000.0);
    }
    expectDelays(data, seconds, 2e-5, unity);
    // A whole number of samples goes, so that the earliest stands after the lead.
    const double first = *std::min_element(seconds.begin(), seconds.end());
    EXPECT_NEAR(report.removedDelay * 16000.0, std::floor(first * 16000.0 + 1e-9) - leadOf(128),
                1e-9);
    EXPECT_EQ(report.lostEnergy, 0.0);
    EXPECT_THAT(report.warnings, IsEmpty());
  }
}

// A short pulse of a Gaussian shape is the same function of time at any rate. Its transform is
// √(2π) σ e^(−(2πfσ)²/2).
TEST_F(ResponseImport, KeepsDelaysAndLevelsWhenTheRateChanges) {
  constexpr double WIDTH = 1.2e-4;
  const std::vector<double> seconds = {2.0e-3, 2.31e-3, 3.0e-3, 2.5e-3};
  // At 48000.5 and 44111 Hz no fast transform meets the frame's frequencies.
  for (const double rate : {44100.0, 48000.0, 97656.25, 16000.0, 48000.5, 44111.0}) {
    SCOPED_TRACE(rate);
    FirFile fir = impulses({0, 0, 0, 0}, static_cast<std::size_t>(rate * 6e-3));
    fir.rate = rate;
    for (std::size_t i = 0; i < fir.responses.size(); ++i) {
      const double t = static_cast<double>(i % fir.length) / rate - seconds[i / fir.length];
      fir.responses[i] = std::exp(-0.5 * std::pow(t / WIDTH, 2.0)) / rate;
    }
    expectDelays(imported(fir, {16000, 512}), seconds, 1e-3 * WIDTH, [](double f) {
      return std::sqrt(2.0 * pi) * WIDTH * std::exp(-0.5 * std::pow(2.0 * pi * f * WIDTH, 2.0));
    });
  }
}

TEST_F(ResponseImport, ContinuesThePureDelayAboveTheBandOfTheFile) {
  FirFile fir = impulses({40, 45, 52, 41});
  fir.rate = 8000.0;
  expectDelays(imported(fir, {16000, 512}), {40 / 8e3, 45 / 8e3, 52 / 8e3, 41 / 8e3}, 2e-5, unity);
  EXPECT_THAT(report.warnings, ElementsAre(HasSubstr("the sampling rate is 8000 Hz: nothing is "
                                                     "known above 4000 Hz")));
}

// h(n) = a^n has the energy a^(2n) / (1 − a²) from sample n on.
TEST_F(ResponseImport, SaysHowMuchEnergyTruncationLoses) {
  constexpr double A = 0.995;
  constexpr int LENGTH = 512;
  FirFile fir = impulses({0, 0, 0, 0}, 8000);
  for (std::size_t n = 0; n < fir.length; ++n) fir.responses[n] = std::pow(A, n);
  imported(fir, {16000, LENGTH});
  constexpr double END = LENGTH - leadOf(LENGTH);
  EXPECT_LT(report.worstLoss, std::pow(A, 2 * (END - LENGTH / 16)));  // before the fade
  EXPECT_GT(report.worstLoss, 1.1 * std::pow(A, 2 * END));            // after it
  // The other three responses have the energy 1 and lose nothing.
  const double own = 1.0 / (1.0 - A * A);
  EXPECT_NEAR(report.lostEnergy, report.worstLoss * own / (own + 3.0), 1e-6);
  EXPECT_THAT(report.warnings, IsEmpty());  // 99 % are inside
}

// Of h(n) = a^n the share 1 − a^(2n) lies before sample n; half a frame shall hold 99.99 % but for
// lead and fade.
TEST_F(ResponseImport, ChoosesTheShortestFrameOfWhichHalfHoldsEnough) {
  const std::tuple<double, int, int> cases[] = {// a, rate, length
                                                {0.9, 16000, 512},    {0.9925, 16000, 2048},
                                                {0.997, 16000, 4096}, {0.9, 48000, 1024},
                                                {0.9, 8000, 256},     {0.9998, 16000, 8192}};
  for (const auto& [a, rate, length] : cases) {
    FirFile fir = impulses({0, 0, 0, 0}, 30000);
    fir.rate = rate;
    for (std::size_t n = 0; n < fir.responses.size(); ++n) {
      fir.responses[n] = std::pow(a, n % fir.length);
    }
    const auto data = imported(fir, {rate, 0});
    EXPECT_EQ(data.frequencies, static_cast<std::size_t>(length) / 2 + 1) << a << " " << rate;
    EXPECT_TRUE(report.chosen);
    const double outside = std::pow(a, 2.0 * (length - leadOf(length)));
    EXPECT_GE(1.0 - *data.energyInFrame, 0.99 * outside - 1e-9);
    EXPECT_LE(1.0 - *data.energyInFrame, std::pow(outside, 14.0 / 16.0) + 1e-9);
    if (length == 8192) {
      EXPECT_THAT(report.warnings, ElementsAre(HasSubstr("a longer --length holds more")));
    } else {
      EXPECT_GE(*data.energyInFrame, 0.99);
      EXPECT_THAT(report.warnings, IsEmpty());
    }
  }
  const std::tuple<double, int, int> latencies[] = {// ms, rate, samples
                                                    {32, 16000, 512},
                                                    {20, 16000, 320},
                                                    {10.99, 16000, 162},
                                                    {5.33, 48000, 250}};
  for (const auto& [time, rate, length] : latencies) {
    EXPECT_EQ(longestFrame(time / 1000.0, rate), length) << time;
  }
}

TEST_F(ResponseImport, RefusesResponsesOutsideOneFrameTooLargeOnesAndSilence) {
  FirFile outside = impulses({40, 45, 52, 41});
  FirFile large = outside;
  FirFile silent = outside;
  outside.delays = {0.0, 5000.0};
  large.responses[3 * large.length + 41] = large.responses[3 * large.length + 42] = 3e38;
  silent.responses.assign(silent.responses.size(), 0.0);
  const std::pair<FirFile, const char*> cases[] = {
      {outside,
       "the response of position 0, microphone 2 lies outside a frame of 512 samples (32.0 ms)"},
      {large,
       "the transfer function of position 1, microphone 2 is inf somewhere, expected responses of "
       "less than 3.4e+38"},
      {silent, "all responses are 0"}};
  for (const auto& [fir, reason] : cases) {
    EXPECT_THAT(messageOf<DataError>([&, fir = fir] {
                  imported(fir, {16000, 512});
                }),
                HasSubstr(reason));
  }
}

TEST_F(ResponseImport, CopiesTransferFunctionsThatFitAndConvertsOthers) {
  const std::string path = folder / "tf.sofa";
  SofaTransferFunctions data = imported(impulses({20, 25, 32, 21}), {32000, 512});
  writeSofa(path, data);
  report = {};
  EXPECT_EQ(importResponses(SofaFile(path), {32000, 512}, report).values, data.values);
  EXPECT_TRUE(report.copied);

  // Little is left at the band's edge: so the delays ring briefly.
  const auto level = [](double f) { return std::pow(std::cos(0.5 * pi * f / 16000.0), 2.0); };
  const std::vector<double> seconds = {3.5 / 32e3, 8.25 / 32e3, 60.0 / 32e3, 4.0 / 32e3};
  for (std::size_t i = 0; i < data.values.size(); ++i) {
    const double f = static_cast<double>(i % 257) * 32000.0 / 512.0;
    data.values[i] = std::polar(level(f), -2.0 * pi * f * seconds[i / 257]);
  }
  writeSofa(path, data);
  report = {};
  const auto converted = importResponses(SofaFile(path), {16000, 256}, report);
  EXPECT_FALSE(report.copied);
  EXPECT_LT(report.lostEnergy, 1e-4);
  expectDelays(converted, seconds, 0.01, level);
}

// The transform of a response begun `early` samples before time 0 is that of its cyclic shift. What
// has not decayed in the last eighth is late, not early.
TEST_F(ResponseImport, TransferFunctionsGiveWhatTheirImpulseResponsesGive) {
  constexpr std::size_t LENGTH = 256;
  const std::tuple<double, std::size_t, std::size_t> cases[] = {// a, early, samples before time 0
                                                                {0.9999, 0, 0},
                                                                {0.96, 0, 0},
                                                                {0.96, 20, LENGTH / 8}};
  for (const auto& [a, early, lead] : cases) {
    SCOPED_TRACE(testing::Message() << a << ", " << early);
    FirFile fir = impulses({0, 0, 0, 0}, LENGTH);
    for (std::size_t n = 0; n < fir.responses.size(); ++n) {
      fir.responses[n] = std::pow(a, n % LENGTH) * (n % 7 < 3 + n / LENGTH ? 1.0 : -1.0);
    }
    const auto expected = imported(fir, {16000, 1024});
    const double expectedDelay = report.removedDelay;

    SofaTransferFunctions data = expected;
    data.frequencies = LENGTH / 2 + 1;
    data.values.clear();
    for (std::size_t i = 0; i < 4 * data.frequencies; ++i) {
      std::complex<double> H;
      const std::size_t k = i % data.frequencies;
      for (std::size_t n = 0; n < LENGTH; ++n) {
        const auto turns = static_cast<double>(k * (n + LENGTH - early) % LENGTH) / LENGTH;
        H += fir.responses[i / data.frequencies * LENGTH + n] * std::polar(1.0, -2 * pi * turns);
      }
      data.values.emplace_back(H);
    }
    const std::string path = folder / "tf.sofa";
    writeSofa(path, data);
    EXPECT_EQ(ResponseSet(path).leadIn(), lead);
    const auto found = importResponses(SofaFile(path), {16000, 1024}, report);
    EXPECT_NEAR(report.removedDelay, expectedDelay - static_cast<double>(early) / 16000, 1e-12);
    for (std::size_t i = 0; i < expected.values.size(); ++i) {
      ASSERT_LT(std::abs(found.values[i] - expected.values[i]), 2e-3) << i;
    }
  }
}

TEST_F(ResponseImport, RemarksUnitsThatAreNoMetres) {
  FirFile fir = impulses({40, 45, 52, 41});
  const auto remarks = [&](const char* units) {
    fir.units = units;
    fir.write(folder / "fir.sofa");
    return SofaFile(folder / "fir.sofa").warnings();
  };
  for (const char* units :
       {"metre", "Meter", "m", "degree, degree, metre", "degrees, degrees, meters"}) {
    EXPECT_THAT(remarks(units), IsEmpty()) << units;
  }
  EXPECT_THAT(remarks("mm"),
              ElementsAre(HasSubstr("SourcePosition has the Units \"mm\", expected metres"),
                          HasSubstr("ReceiverPosition has the Units \"mm\", expected metres")));
}

}  // namespace
