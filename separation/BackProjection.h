#pragma once

#include <complex>
#include <map>
#include <vector>

namespace Audio {

/// Gives separated spectra the scale that the source has at a reference microphone, bin by bin.
///
/// With the reference microphone's spectrum X and a source's separated spectrum Y, a frame changes
/// the source's averages of the bin by
///   P ← α · P + X · conj(Y),  Q ← α · Q + |Y|²,
/// and its output is (P/Q) · Y (0 while Q is 0). P/Q is the gain g that minimises the sum over the
/// frames so far of α^age · |X − g · Y|². Averages belong to the source's id and survive its
/// absence.
class BackProjection {
 public:
  /// Throws DataError unless 0 ≤ forgettingFactor ≤ 1.
  BackProjection(int binCount, double forgettingFactor);

  /// One frame of one source; reference, spectrum and projected have bins values each, and
  /// projected may be spectrum. update = false applies the averages as they are. Bins in which a
  /// value is not finite leave the averages alone.
  void project(int id, const std::complex<float>* reference, const std::complex<float>* spectrum,
               bool update, std::complex<float>* projected);

 private:
  struct Averages {
    std::vector<std::complex<double>> P;
    std::vector<double> Q;
  };

  int bins;
  double alpha;
  std::map<int, Averages> averages;
};

}  // namespace Audio
