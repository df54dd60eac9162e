// Scores of short signals with any taps: finite or infinite, never undefined, and one equation
// between the three.
#include <cmath>
#include <vector>

#include "dsp/DataError.h"
#include "fuzz/Fuzzing.h"
#include "scoring/ScoreMetrics.h"

namespace {

constexpr int MAX_SOURCES = 4;
constexpr int MAX_LENGTH = 96;
constexpr int MAX_TAPS = 48;

/// A sample as files hold it: in single precision, mostly of usual size.
double sample(FuzzedDataProvider& choices) {
  const float usual = choices.ConsumeIntegral<std::int8_t>() / 128.0F;
  switch (choices.ConsumeIntegralInRange<int>(0, 7)) {
    case 0:
      return choices.ConsumeFloatingPointInRange<float>(-3e38F, 3e38F);
    case 1:
      return usual * 1e-30F;
    case 2:
      return 0.0;
    default:
      return usual;
  }
}

NamedSignal signal(FuzzedDataProvider& choices, int length) {
  NamedSignal result{"signal.wav", {}};
  for (int n = 0; n < length; ++n) result.samples.push_back(sample(choices));
  // Long smooth signals: what they have at high frequencies is rounding errors.
  for (int pass = choices.ConsumeIntegralInRange(0, 24); pass > 0; --pass) {
    for (int n = length - 1; n > 0; --n) {
      double& x = result.samples[static_cast<std::size_t>(n)];
      x = static_cast<float>(0.5 * x + 0.5 * result.samples[static_cast<std::size_t>(n) - 1]);
    }
  }
  return result;
}

double ratio(double decibels) { return std::pow(10.0, -decibels / 10.0); }

void check(const SourceScore& score) {
  require(!std::isnan(score.sdr) && !std::isnan(score.sir) && !std::isnan(score.sar),
          "scores are numbers");
  require(score.sdr <= score.sir && score.sdr <= score.sar, "no part of the error exceeds it");
  if (std::isinf(score.sdr)) return;
  const double sum = ratio(score.sir) + ratio(score.sar);
  require(std::abs(sum - ratio(score.sdr)) <= 1e-9 * sum, "the errors add up");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider choices(data, size);
  const int sources = choices.ConsumeIntegralInRange(1, MAX_SOURCES);
  const int length = choices.ConsumeIntegralInRange(0, MAX_LENGTH);
  const int taps = choices.ConsumeIntegralInRange(1, MAX_TAPS);
  try {
    std::vector<NamedSignal> references;
    for (int i = 0; i < sources; ++i) references.push_back(signal(choices, length));
    const ScoreMetrics metrics(references, taps);
    NamedSignal estimate = signal(choices, length);
    for (std::size_t i = 0; i < references.size(); ++i) {
      check(metrics.score(estimate, i));
      check(metrics.score(references[i], i));
      require(!std::isnan(metrics.fit(estimate, i)), "fits are numbers");
    }
  } catch (const DataError& error) {
    require(isShowable(error.what()), "messages are showable");
  }
  return 0;
}
