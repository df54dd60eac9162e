#pragma once

#include <memory>
#include <vector>

#include "bf/BF.h"

namespace BF {

/// Maximum likelihood: per source and bin the minimum-variance distortionless filter
///   w = Q · a / (aᴴ · Q · a)
/// (Capon 1969, the maximum-likelihood filter; MVDR, Van Trees, Optimum Array Processing, 2002,
/// chapter 6), where Q is the inverse of the bin's noise correlation matrix after diagonal
/// loading (Cox, Zeskind & Owen 1987) and a the source's transfer function at unit norm. Each
/// filter is multiplied by e^(jkπ) = (−1)^k, a circular shift by half a frame.
///
/// noiseCorrelationMatrices is filled from outside before updateSources; the filters follow it and
/// the source list there, and never adapt.
class CML : public BF {
 public:
  /// regFactor: the multiple of the noise matrix's Frobenius norm added to its diagonal.
  CML(int numFreq, int samplingRate, double soundSpeed, double regFactor);
  ~CML() override;

  int getBfAlgorithmType() const override { return BF_ALGORITHM_CML; }

  /// Throws IndexOutOfBoundException when there are fewer than numFreq noise matrices and
  /// MatrixSizeMismatchException when one of them is not M × M.
  void updateSources(const std::vector<SourceLocation>& newSources) override;

  /// Does nothing.
  void adaptSeparationMatrices() override;

  double regFactor;  ///< as in the constructor; read by updateSources

 private:
  struct Work;
  void compute(int first, int end, int member);
  void computeFilters(int k, const Matrix& Q, Matrix& a, Matrix& q);

  std::unique_ptr<Work> work;  // what is kept from update to update
};

}  // namespace BF
