#include "scoring/ScoreMetrics.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

namespace {

// A reference of which less than this share (−60 dB) is its own cannot be told from the others.
constexpr double SMALLEST_OWN_SHARE = 1e-6;

// Parts below this share (−200 dB) of the estimate are rounding errors of the calculation: samples
// stored as 32-bit floating point have rounding errors of −150 dB themselves.
constexpr double ROUNDING_SHARE = 1e-20;

double energy(const std::vector<double>& signal) {
  return std::inner_product(signal.begin(), signal.end(), signal.begin(), 0.0);
}

/// 10 · log10(a / b) of two parts of something that has the energy `total`.
double decibels(double a, double b, double total) {
  if (a <= ROUNDING_SHARE * total) return -std::numeric_limits<double>::infinity();
  if (b <= ROUNDING_SHARE * total) return std::numeric_limits<double>::infinity();
  return 10.0 * std::log10(a / b);
}

}  // namespace

ScoreMetrics::ScoreMetrics(std::vector<NamedSignal> referenceSignals, int filterTaps)
    : references(std::move(referenceSignals)) {
  if (references.empty()) throw ScoreError("there are no references, expected one per source");
  std::vector<const ReferenceSpan::Signal*> signals;
  for (const NamedSignal& reference : references) {
    if (energy(reference.samples) == 0.0) {
      throw ScoreError(fmt::format(
          "{}: the reference is silent over the compared length of {} samples, expected a signal",
          reference.name, reference.samples.size()));
    }
    signals.push_back(&reference.samples);
    single.emplace_back(std::vector{&reference.samples}, filterTaps);
  }
  all = std::make_unique<ReferenceSpan>(signals, filterTaps);
  for (std::size_t i = 0; i < references.size(); ++i) {
    if (all->newEnergy(i) > SMALLEST_OWN_SHARE) continue;
    throw ScoreError(fmt::format(
        "{}: the reference is {} of those before it (less than -60 dB of it differs), expected "
        "references that are linearly independent",
        references[i].name,
        filterTaps == 1 ? "a weighted sum"
                        : fmt::format("a sum of filtered versions ({} taps)", filterTaps)));
  }
}

SourceScore ScoreMetrics::score(const NamedSignal& estimate, std::size_t source) const {
  const double total = energy(estimate.samples);
  if (total == 0.0) {
    throw ScoreError(fmt::format(
        "{}: the signal is silent over the compared length of {} samples, expected one to score",
        estimate.name, estimate.samples.size()));
  }
  // s_target: projection on the own reference; e_interf: on all references, less s_target;
  // e_artif: the rest. They are orthogonal, so SDR's denominator is the energy of both errors.
  const ReferenceSpan& own = single[source];
  const std::vector<double> target = own.project(estimate.samples);
  const std::vector<double> explained =
      references.size() == 1 ? target : all->project(estimate.samples);
  const auto lead = static_cast<std::size_t>(own.leadIn());
  double distortion = 0.0;
  double interference = 0.0;
  double artifacts = 0.0;
  for (std::size_t n = 0; n < target.size(); ++n) {
    const bool inside = n >= lead && n - lead < estimate.samples.size();
    const double e = inside ? estimate.samples[n - lead] : 0.0;
    distortion += (e - target[n]) * (e - target[n]);
    interference += (explained[n] - target[n]) * (explained[n] - target[n]);
    artifacts += (e - explained[n]) * (e - explained[n]);
  }
  const double wanted = energy(target);
  return {decibels(wanted, distortion, total), decibels(wanted, interference, total),
          decibels(wanted, artifacts, total)};
}
