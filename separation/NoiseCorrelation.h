#pragma once

#include <complex>
#include <cstdint>
#include <vector>

namespace Audio {

/// Spatial correlation matrices of noise, one per frequency bin, averaged over frames.
///
/// With the frame's observation x (M × 1) of a bin, the n-th frame changes its R (M × M) by
///   R ← (1 − w) · R + w · x · xᴴ,  w = max(1/n, 1 − forgetting):
/// the plain mean at first, and always with forgetting = 1; a running mean later.
class NoiseCorrelation {
 public:
  /// Throws DataError unless 0 ≤ forgettingFactor ≤ 1.
  NoiseCorrelation(int microphoneCount, int binCount, double forgettingFactor);

  int microphones() const { return M; }
  int bins() const { return K; }

  /// Takes one frame, M × K values with a row per microphone. A frame with values that are not
  /// finite is left out.
  void add(const std::complex<float>* spectra);

  /// Frames taken so far.
  std::int64_t frames() const { return n; }

  /// K × M·M values: row k is the matrix of bin k, element (i, j) at column i · M + j.
  ///
  /// With σ = tr(R)/M, the mean power of a microphone, the result is R + loading · σ · I. If
  /// normalize is true it is R/σ + loading · I instead, which does not depend on the recording's
  /// level, and (1 + loading) · I in a bin without any noise.
  void write(double loading, bool normalize, std::complex<float>* matrices) const;

 private:
  int M;
  int K;
  double forgetting;
  std::int64_t n = 0;
  std::vector<std::complex<double>> R;  // K × M·M
  std::vector<double> re, im;           // of a bin's observation
};

}  // namespace Audio
