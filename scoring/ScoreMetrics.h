#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "scoring/ReferenceSubspace.h"

/// How well a source was separated, in dB, each from −∞ to ∞.
struct SourceScore {
  double sdr;  ///< SI-SDR: target against everything else
  double sir;  ///< SI-SIR: target against what came from the other sources
  double sar;  ///< SI-SAR: target against what came from no source
};

/// A signal and what to call it in messages.
struct NamedSignal {
  std::string name;
  std::vector<double> samples;
};

/// Scale-invariant scores of estimated sources, as docs/scores.md defines them.
class ScoreMetrics {
 public:
  /// One reference per source, all of one length; filterTaps ≥ 1 is the length of the filter that
  /// an estimate may have been through without loss. Throws DataError when there are no
  /// references, one is silent or is made by filters of that length of those before it, or all are
  /// so short that such filters make any signal of them.
  ScoreMetrics(std::vector<NamedSignal> referenceSignals, int filterTaps);

  /// Scores an estimate of source `source`, of the references' length:
  /// 10^(−SDR/10) = 10^(−SIR/10) + 10^(−SAR/10). Throws DataError when it is silent.
  SourceScore score(const NamedSignal& estimate, std::size_t source) const;

  /// The SI-SDR alone, to the regularisation's precision and sooner. Throws like score().
  double fit(const NamedSignal& estimate, std::size_t source) const;

 private:
  static const std::vector<double>& checked(const NamedSignal& estimate);

  std::vector<NamedSignal> references;
  std::unique_ptr<ReferenceSubspace> all;
  std::vector<ReferenceSubspace> single;  // of each reference alone
};
