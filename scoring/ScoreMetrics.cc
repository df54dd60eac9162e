#include "scoring/ScoreMetrics.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

#include "dsp/DataError.h"
#include "dsp/Decibels.h"

namespace {

// A reference of which less than this share (−60 dB) is its own cannot be told from the others.
constexpr double MIN_OWN_SHARE = 1e-6;

// Parts below this share (−200 dB) of the estimate are rounding errors of the calculation: samples
// stored as 32-bit floating point have rounding errors of −150 dB themselves.
constexpr double ROUNDING_SHARE = 1e-20;

using Signal = ReferenceSubspace::Signal;

double dot(const Signal& x, const Signal& y) {
  return std::inner_product(x.begin(), x.end(), y.begin(), 0.0);
}

double energy(const Signal& x) { return dot(x, x); }

/// 10 · log10(a / b) of energies that are not both 0.
double decibels(double a, double b) {
  if (a == 0.0) return -std::numeric_limits<double>::infinity();
  if (b == 0.0) return std::numeric_limits<double>::infinity();
  return Audio::decibels(a / b);
}

/// a · x + b · y.
Signal sum(double a, const Signal& x, double b, const Signal& y) {
  Signal result(x.size());
  for (std::size_t n = 0; n < x.size(); ++n) result[n] = a * x[n] + b * y[n];
  return result;
}

/// The multiple of `direction` that is nearest to x: ⟨x, d⟩ / ⟨d, d⟩ · d.
Signal nearestMultiple(const Signal& direction, const Signal& x) {
  const double square = energy(direction);
  const double share = square == 0.0 ? 0.0 : dot(x, direction) / square;
  return sum(share, direction, 0.0, direction);
}

}  // namespace

ScoreMetrics::ScoreMetrics(std::vector<NamedSignal> referenceSignals, int filterTaps)
    : references(std::move(referenceSignals)) {
  if (references.empty()) throw DataError("there are no references, expected one per source");
  std::vector<const ReferenceSubspace::Signal*> signals;
  for (const NamedSignal& reference : references) {
    if (energy(reference.samples) == 0.0) {
      throw DataError(fmt::format(
          "{}: the reference is silent over the compared length of {} samples, expected a signal",
          reference.name, reference.samples.size()));
    }
    signals.push_back(&reference.samples);
    single.emplace_back(std::vector{&reference.samples}, filterTaps);
  }
  // Filters of so many taps make any signal of that length.
  const std::size_t others = (references.size() - 1) * static_cast<std::size_t>(filterTaps);
  if (others > 0 && references.front().samples.size() <= others + 1) {
    throw DataError(fmt::format(
        "{}: {} samples are too few to tell {} references apart with filters of {} taps, expected "
        "more than {} samples, or fewer taps",
        references.front().name, references.front().samples.size(), references.size(), filterTaps,
        others + 1));
  }
  all = std::make_unique<ReferenceSubspace>(signals, filterTaps);
  for (std::size_t i = 0; i < references.size(); ++i) {
    if (all->ownShare(i) > MIN_OWN_SHARE) continue;
    throw DataError(fmt::format(
        "{}: the reference is {} of those before it (less than -60 dB of it differs), expected "
        "references that are linearly independent",
        references[i].name,
        filterTaps == 1 ? "a weighted sum"
                        : fmt::format("a sum of filtered versions ({} taps)", filterTaps)));
  }
}

// e = s_target + e_interf + e_artif. s_target is the member of the own reference's span nearest to
// e, e_interf the member of the span of all that is nearest to what is left, e_artif the rest. Both
// members are scaled so that what they leave is orthogonal to them whatever the filters' precision,
// and SDR's denominator is the energy of both errors. s_target starts from the reference as it is,
// which makes a scaled reference score without error.
SourceScore ScoreMetrics::score(const NamedSignal& estimate, std::size_t source) const {
  const ReferenceSubspace& own = single[source];
  const Signal e = own.padded(checked(estimate));
  Signal target = nearestMultiple(own.padded(references[source].samples), e);
  target = nearestMultiple(sum(1.0, target, 1.0, own.project(sum(1.0, e, -1.0, target))), e);
  const Signal error = sum(1.0, e, -1.0, target);
  Signal interference(error.size());
  if (references.size() > 1) interference = nearestMultiple(all->project(error), error);
  const Signal artifacts = sum(1.0, error, -1.0, interference);

  const double least = ROUNDING_SHARE * energy(e);
  const auto part = [&](const Signal& x) { return energy(x) > least ? energy(x) : 0.0; };
  const double wanted = part(target);
  const double interf = part(interference);
  const double artif = part(artifacts);
  return {decibels(wanted, interf + artif), decibels(wanted, interf), decibels(wanted, artif)};
}

double ScoreMetrics::fit(const NamedSignal& estimate, std::size_t source) const {
  const Signal& e = checked(estimate);
  const double total = energy(e);
  const double explained =
      std::min(single[source].explainedEnergy(single[source].padded(e)), total);
  return decibels(explained, total - explained);
}

const Signal& ScoreMetrics::checked(const NamedSignal& estimate) {
  if (energy(estimate.samples) > 0.0) return estimate.samples;
  throw DataError(fmt::format(
      "{}: the signal is silent over the compared length of {} samples, expected one to score",
      estimate.name, estimate.samples.size()));
}
