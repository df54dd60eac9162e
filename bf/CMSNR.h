#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bf/BF.h"

namespace BF {

/// Maximum signal-to-noise ratio, without transfer functions (Van Trees, Optimum Array Processing,
/// 2002, chapter 6; by generalised eigenvectors from estimated correlations, Warsitz &
/// Haeb-Umbach 2007; by singular vectors, Doclo & Moonen 2002): per source and bin a pair of
/// spatial correlation matrices is averaged recursively, the signal's on frames in which the source
/// is listed as a target (flag true), the noise's on frames in which the same id is listed as a
/// noise source. The source's filter is the generalised eigenvector (or singular vector) of the
/// pair with the largest generalised value.
///
/// The pair and the filter are carried over by id. numMic must hold the input's row count before
/// updateSources.
class CMSNR : public BF {
 public:
  /// decompositionAlgorithm: "GEVD" or "GSVD"; any other text throws InvalidStateException.
  /// alpha: forgetting factor of the averages, 1 keeps the old value, 0 takes the new one.
  CMSNR(int numFreq, int samplingRate, double soundSpeed, std::string decompositionAlgorithm,
        double alpha);
  ~CMSNR() override;

  int getBfAlgorithmType() const override { return BF_ALGORITHM_CMSNR; }

  /// New sources start from identity correlations and the uniform filter 1/√M.
  void updateSources(const std::vector<SourceLocation>& newSources) override;

  /// One averaging step of every pair, then new filters: they serve the next frame.
  void adaptSeparationMatrices() override;

  std::vector<Matrix> signalCorrelations;  ///< entry k · N + s: M × M
  std::vector<Matrix> noiseCorrelations;   ///< entry k · N + s: M × M
  std::string decompositionAlgorithm;      ///< "GEVD" or "GSVD"
  double alpha;                            ///< forgetting factor of the averages

 private:
  struct Work;
  bool holdsMatricesFor(int M) const;
  void moveCorrelations(int firstBin, int endBin, Matrix& x, Matrix& P);
  void average(const Matrix& P, const Matrix& old, Matrix& result) const;
  void computeEigenFilters(int first, int end, int member);
  void computeSingularFilters(int first, int end, int member);
  void updateInverseFactors(int first, int end, int member);
  const Matrix& signalOf(int i) const;
  const Matrix& noiseOf(int i) const;
  void setFilter(int i, const Matrix& v);

  std::unique_ptr<Work> work;  // what is kept from step to step
};

}  // namespace BF
