#pragma once

#include <complex>
#include <vector>

/// What an engineer writes for one algorithm, one array and one configuration: plain loops over
/// arrays, without a matrix type, a database or a changing source list. The baseline for the
/// engine's own steps.
namespace bench {

using Complex = std::complex<double>;

/// The state of a plain separation: bin-major arrays.
struct PlainState {
  /// Random matrices and one random frame for K bins, N sources and M microphones.
  PlainState(int bins, int sources, int microphones);

  /// y := W · x in every bin.
  void apply();
  /// One adaptive step of geometric source separation with tanh, normalised steps, all bins.
  void adaptGica();
  /// w := (w − μ · y · xᴴ) · P + f for every row of every bin, μ normalised by the input power.
  void adaptLcmv();
  /// w_a += μ · y · (B · x)ᴴ and w := q − w_a · B, μ normalised by the blocked power.
  void adaptGj();

  int K, N, M;
  std::vector<Complex> x;   ///< K × M
  std::vector<Complex> y;   ///< K × N
  std::vector<Complex> W;   ///< K × N × M
  std::vector<Complex> A;   ///< K × M × N, transfer functions
  std::vector<Complex> f;   ///< K × N × M, quiescent weights
  std::vector<Complex> P;   ///< K × N × M × M, projections
  std::vector<Complex> B;   ///< K × N × (M − 1) × M, blocking matrices
  std::vector<Complex> wa;  ///< K × N × (M − 1), adaptive weights
};

}  // namespace bench
