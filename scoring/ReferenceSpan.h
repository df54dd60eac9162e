#pragma once

#include <cstddef>
#include <vector>

#include "scoring/GramFactor.h"

/// All signals that filters of T taps can make of a set of reference signals:
///   y(n) = Σ_i Σ_d h_i(d) · s_i(n − d),  d = −⌊(T − 1)/2⌋ … ⌊T/2⌋.
class ReferenceSpan {
 public:
  using Signal = std::vector<double>;

  /// Signals of one length L, which must outlive the span; taps ≥ 1.
  ReferenceSpan(std::vector<const Signal*> signals, int taps);

  /// Share of signal i's energy that no filters make of the signals before it, 0 … 1.
  double newEnergy(std::size_t i) const;

  /// The member of the span that is nearest to a signal of length L: L + T − 1 samples, of which
  /// the first stands leadIn() samples before the signal's.
  Signal project(const Signal& signal) const;

  int leadIn() const { return (T - 1) / 2; }

 private:
  int delay(std::size_t tap) const;
  GramFactor factor() const;

  std::vector<const Signal*> references;
  int T;
  GramFactor gram;
};
