#include "responses/DelayCheck.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include "dsp/RealFft.h"
#include "geometry/Direction.h"
#include "geometry/Position.h"
#include "geometry/SpeedOfSound.h"

namespace {

using BF::distance;
using BF::Position;
using std::numbers::pi;

constexpr std::size_t MAX_COMPARISONS = 20000;
constexpr std::size_t MIN_DIRECTIONS = 4;
constexpr double CONTRADICTION = -0.3;
constexpr std::size_t OVERSAMPLING = 4;

/// Sound goes round a head by up to about half more than the straight way; channels may differ.
constexpr double DETOUR = 1.6;
constexpr double CHANNEL_DELAY = 5e-4;  // seconds

/// Finds by how much one response is later than another.
class DelayFinder {
 public:
  explicit DelayFinder(const SofaTransferFunctions& transferFunctions)
      : data(transferFunctions),
        length(std::bit_ceil(OVERSAMPLING * std::max<std::size_t>(2, 2 * (data.frequencies - 1)))),
        fft(static_cast<int>(length)),
        cross(length / 2 + 1),
        correlation(length) {}

  /// Seconds, between −longest and longest, for source position m.
  double find(std::size_t m, std::size_t a, std::size_t b, double longest) {
    const std::complex<float>* Ha = row(m, a);
    const std::complex<float>* Hb = row(m, b);
    // The maximum of Σ H_b(k) conj(H_a(k)) e^(j2πkτ/L) over τ.
    for (std::size_t k = 0; k < data.frequencies; ++k) cross[k] = Hb[k] * std::conj(Ha[k]);
    fft.inverse(cross.data(), correlation.data());
    const auto half = static_cast<long>(length / 2);
    const long reach = std::min(half - 1, static_cast<long>(std::ceil(longest * rate())));
    long best = 0;
    for (long lag = -reach; lag <= reach; ++lag) {
      if (at(lag) > at(best)) best = lag;
    }
    return static_cast<double>(best) / rate();
  }

 private:
  // Lags per second: the bins' distance times the length, whichever length that is.
  double rate() const {
    return 0.5 * data.samplingRate / static_cast<double>(data.frequencies - 1) *
           static_cast<double>(length);
  }
  const std::complex<float>* row(std::size_t m, std::size_t r) const {
    return data.values.data() + (m * data.receiverPositions.size() + r) * data.frequencies;
  }
  float at(long lag) const {
    return correlation[static_cast<std::size_t>(lag < 0 ? lag + static_cast<long>(length) : lag)];
  }

  const SofaTransferFunctions& data;
  std::size_t length;
  Audio::RealFft fft;
  std::vector<std::complex<float>> cross;
  std::vector<float> correlation;
};

/// Mean and standard deviation.
struct Spread {
  explicit Spread(const std::vector<double>& values) {
    for (const double value : values) mean += value / static_cast<double>(values.size());
    for (const double value : values) deviation += (value - mean) * (value - mean);
    deviation = std::sqrt(deviation / static_cast<double>(values.size()));
  }
  double mean = 0.0;
  double deviation = 0.0;
};

double correlationOf(const std::vector<double>& x, const std::vector<double>& y) {
  const Spread sx(x);
  const Spread sy(y);
  if (sx.deviation == 0.0 || sy.deviation == 0.0) return 0.0;
  double sum = 0.0;
  for (std::size_t i = 0; i < x.size(); ++i) sum += (x[i] - sx.mean) * (y[i] - sy.mean);
  return sum / (sx.deviation * sy.deviation * static_cast<double>(x.size()));
}

std::optional<DelayAgreement> comparePair(const SofaTransferFunctions& data, DelayFinder& finder,
                                          const std::vector<std::size_t>& directions, std::size_t a,
                                          std::size_t b) {
  const Position& pa = data.receiverPositions[a];
  const Position& pb = data.receiverPositions[b];
  std::vector<double> predicted;
  for (const std::size_t m : directions) {
    const Position& source = data.sourcePositions[m];
    predicted.push_back((distance(source, pb) - distance(source, pa)) / BF::SPEED_OF_SOUND);
  }
  if (Spread(predicted).deviation < 0.25 / data.samplingRate) return std::nullopt;

  const double longest = DETOUR * distance(pa, pb) / BF::SPEED_OF_SOUND + CHANNEL_DELAY;
  std::vector<double> found;
  found.reserve(directions.size());
  for (const std::size_t m : directions) found.push_back(finder.find(m, a, b, longest));

  DelayAgreement result;
  result.microphoneA = a;
  result.microphoneB = b;
  result.directions = directions.size();
  result.correlation = correlationOf(found, predicted);
  double squares = 0.0;
  std::size_t example = 0;
  for (std::size_t i = 0; i < directions.size(); ++i) {
    squares += (found[i] - predicted[i]) * (found[i] - predicted[i]);
    if (std::abs(predicted[i]) > std::abs(predicted[example])) example = i;
  }
  result.rmsDifference = std::sqrt(squares / static_cast<double>(directions.size()));
  result.example = directions[example];
  result.foundDelay = found[example];
  result.predictedDelay = predicted[example];
  return result;
}

std::string later(double delay, std::size_t a, std::size_t b) {
  return fmt::format("{:.2f} ms later at microphone {} than at {}", 1000.0 * std::abs(delay),
                     1 + (delay < 0.0 ? a : b), 1 + (delay < 0.0 ? b : a));
}

}  // namespace

std::optional<DelayAgreement> compareDelays(const SofaTransferFunctions& data) {
  const std::size_t R = data.receiverPositions.size();
  const std::size_t M = data.sourcePositions.size();
  if (M < MIN_DIRECTIONS || R < 2) return std::nullopt;
  // Of very many microphones, only the pairs of neighbours in the file and those with the first
  // one.
  const bool allPairs = R * (R - 1) / 2 * MIN_DIRECTIONS <= MAX_COMPARISONS;
  const std::size_t pairs = allPairs ? R * (R - 1) / 2 : 2 * R;
  const std::size_t picked = std::clamp(MAX_COMPARISONS / pairs, MIN_DIRECTIONS, M);
  std::vector<std::size_t> directions;
  for (std::size_t i = 0; i < picked; ++i) directions.push_back(i * M / picked);

  DelayFinder finder(data);
  std::optional<DelayAgreement> least;
  for (std::size_t a = 0; a < R; ++a) {
    for (std::size_t b = a + 1; b < R; ++b) {
      if (!allPairs && a != 0 && b != a + 1) continue;
      const auto agreement = comparePair(data, finder, directions, a, b);
      if (agreement && (!least || agreement->correlation < least->correlation)) least = agreement;
    }
  }
  return least;
}

bool contradicts(const DelayAgreement& agreement) { return agreement.correlation < CONTRADICTION; }

std::string describe(const DelayAgreement& agreement, const SofaTransferFunctions& data) {
  const std::size_t a = agreement.microphoneA;
  const std::size_t b = agreement.microphoneB;
  const std::string numbers = fmt::format(
      "between microphones {} and {} delays found and predicted correlate by {:.2f} over {} "
      "directions and differ by {:.2f} ms rms",
      a + 1, b + 1, agreement.correlation, agreement.directions, 1000.0 * agreement.rmsDifference);
  if (!contradicts(agreement)) {
    return fmt::format("the worst pair: {}", numbers);
  }
  const Position& p = data.sourcePositions[agreement.example];
  const BF::Direction direction = BF::directionOf(BF::asLocation(p));
  return fmt::format(
      "the responses contradict the positions: {}; sound from position {} (azimuth {:.0f}°, "
      "elevation {:.0f}°) arrives {} by the responses, {} by the positions. Separation follows the "
      "responses; either the microphones' order or the direction of the azimuth is reversed",
      numbers, agreement.example, direction.azimuth, direction.elevation,
      later(agreement.foundDelay, a, b), later(agreement.predictedDelay, a, b));
}
